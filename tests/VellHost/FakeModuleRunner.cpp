// A stand-in for VellModuleRunner that misbehaves on request. The behaviour is named in the
// request's script as "fake:<name>", since a runner gets neither arguments nor environment.
// Every start leaves a file "started" beside the executable, before anything is read, so a
// test can tell that no process was ever launched. Like the real runner, it blocks reading
// its request once started, so it can wait as a spare.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <time.h>
#include <unistd.h>

extern char** environ;

namespace {

void writeAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t count = write(fd, text.data() + done, text.size() - done);
        if (count <= 0)
            return;
        done += static_cast<size_t>(count);
    }
}

void markStarted() {
    char self[4096];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0)
        return;
    self[length] = '\0';
    std::string marker(self);
    marker.resize(marker.rfind('/') + 1);
    marker += "started";
    const int fd = open(marker.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    if (fd >= 0) {
        writeAll(fd, "1\n");
        close(fd);
    }
}

std::string readInput(size_t limit) {
    std::string input;
    char chunk[8192];
    while (input.size() < limit) {
        const ssize_t count = read(STDIN_FILENO, chunk, sizeof chunk);
        if (count <= 0)
            break;
        input.append(chunk, static_cast<size_t>(count));
    }
    return input;
}

std::string behaviour(const std::string& input) {
    const size_t at = input.find("fake:");
    if (at == std::string::npos)
        return {};
    const size_t end = input.find('"', at);
    return input.substr(at + 5, end == std::string::npos ? std::string::npos : end - at - 5);
}

const std::string validAnswer = R"({"state":{"count":"1"}})";

} // namespace

int main() {
    markStarted();
    // Only the start of the request is read when the runner is meant to stop reading early.
    std::string input = readInput(4096);
    const std::string mode = behaviour(input);
    if (mode != "close-input-early")
        input += readInput(static_cast<size_t>(-1));
    else
        close(STDIN_FILENO);

    if (mode == "valid" || mode == "close-input-early") {
        writeAll(STDOUT_FILENO, validAnswer);
    } else if (mode == "hang-after-answer") {
        writeAll(STDOUT_FILENO, validAnswer);
        for (;;)
            pause();
    } else if (mode == "slow-valid") {
        const timespec second{1, 0};
        nanosleep(&second, nullptr);
        writeAll(STDOUT_FILENO, validAnswer);
    } else if (mode == "hang-silently") {
        for (;;)
            pause();
    } else if (mode == "close-output-then-hang") {
        writeAll(STDOUT_FILENO, validAnswer);
        close(STDOUT_FILENO);
        for (;;)
            pause();
    } else if (mode == "exit-1-after-answer") {
        writeAll(STDOUT_FILENO, validAnswer);
        return 1;
    } else if (mode == "killed-after-answer") {
        writeAll(STDOUT_FILENO, validAnswer);
        raise(SIGKILL);
    } else if (mode == "silent") {
        return 0;
    } else if (mode == "flood") {
        const std::string block(65536, 'x');
        for (;;)
            writeAll(STDOUT_FILENO, block);
    } else if (mode == "exactly-limit" || mode == "one-over-limit") {
        // Trailing white space is valid JSON, so the answer stays readable at any length.
        const size_t total = mode == "exactly-limit" ? 65536 : 65537;
        writeAll(STDOUT_FILENO, validAnswer + std::string(total - validAnswer.size(), ' '));
    } else if (mode == "state-and-error") {
        writeAll(STDOUT_FILENO, R"({"state":{"count":"2"},"error":"The script gave up."})");
    } else if (mode == "no-state") {
        writeAll(STDOUT_FILENO, "{}");
    } else if (mode == "invalid-state") {
        writeAll(STDOUT_FILENO, R"({"state":{"9lives":"x"}})");
    } else if (mode == "not-text-state") {
        writeAll(STDOUT_FILENO, R"({"state":{"count":1}})");
    } else if (mode == "noise-on-error-output") {
        const std::string noise(1 << 20, 'e');
        writeAll(STDERR_FILENO, noise);
        writeAll(STDOUT_FILENO, validAnswer);
    } else if (mode == "report-environment") {
        std::string variables;
        for (char** entry = environ; *entry; ++entry)
            variables += std::string(variables.empty() ? "" : ";") + *entry;
        writeAll(STDOUT_FILENO, R"({"state":{"variables":")" + variables + R"("}})");
    } else if (mode == "report-descriptors") {
        std::string open;
        for (int fd = 0; fd < 1024; ++fd) {
            if (fcntl(fd, F_GETFD) != -1)
                open += std::string(open.empty() ? "" : ",") + std::to_string(fd);
        }
        writeAll(STDOUT_FILENO, R"({"state":{"open":")" + open + R"("}})");
    } else if (mode == "report-pid" || mode == "slow-report-pid") {
        if (mode == "slow-report-pid") {
            const timespec second{1, 0};
            nanosleep(&second, nullptr);
        }
        writeAll(STDOUT_FILENO, R"({"state":{"pid":")" + std::to_string(getpid()) + R"("}})");
    } else if (mode == "report-input-size") {
        writeAll(STDOUT_FILENO, R"({"state":{"bytes":")" + std::to_string(input.size()) + R"("}})");
    } else {
        writeAll(STDOUT_FILENO, R"({"error":"unknown fake behaviour"})");
    }
    return 0;
}
