// A stand-in for VellModuleRunner that misbehaves on request. The behaviour is named in the
// request's script as "fake:<name>", since a runner gets neither arguments nor environment;
// "fake:slow-<name>" waits a second first. Every start leaves a file "started" beside the
// executable, before anything is read, so a test can tell that no process was ever launched.
// Like the real runner, it blocks reading its request once started, so it can wait as a spare.

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <string>
#include <time.h>
#include <unistd.h>

extern char** environ;

namespace {

void writeAll(int fd, const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t count = write(fd, text.data() + done, text.size() - done);
        if (count <= 0)
            return;
        done += static_cast<size_t>(count);
    }
}

std::string readInput(size_t limit) {
    std::string input;
    char chunk[8192];
    ssize_t count = 0;
    while (input.size() < limit && (count = read(STDIN_FILENO, chunk, sizeof chunk)) > 0)
        input.append(chunk, static_cast<size_t>(count));
    return input;
}

std::string stateOf(const std::string& key, const std::string& value) {
    return R"({"state":{")" + key + R"(":")" + value + R"("}})";
}

[[noreturn]] void hang() {
    for (;;)
        pause();
}

} // namespace

int main(int, char** argv) {
    const std::string self(argv[0]);
    const int marker =
        open((self.substr(0, self.rfind('/') + 1) + "started").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    close(marker);
    // Only the start of the request is read when the runner is meant to stop reading early.
    std::string input = readInput(4096);
    const size_t at = input.find("fake:");
    if (at == std::string::npos)
        return 0;
    std::string mode = input.substr(at + 5, input.find('"', at) - at - 5);
    if (mode == "close-input-early")
        close(STDIN_FILENO);
    else
        input += readInput(static_cast<size_t>(-1));
    if (mode.rfind("slow-", 0) == 0) {
        const timespec second{1, 0};
        nanosleep(&second, nullptr);
        mode = mode.substr(5);
    }

    const std::string valid = stateOf("count", "1");
    const std::map<std::string, std::string> answers{
        {"valid", valid},
        {"close-input-early", valid},
        {"state-and-error", R"({"state":{"count":"2"},"error":"The script gave up."})"},
        {"no-state", "{}"},
        {"invalid-state", stateOf("9lives", "x")},
        {"not-text-state", R"({"state":{"count":1}})"},
        {"report-pid", stateOf("pid", std::to_string(getpid()))},
        {"report-input-size", stateOf("bytes", std::to_string(input.size()))},
        // Trailing white space is valid JSON, so the answer stays readable at any length.
        {"exactly-limit", valid + std::string(65536 - valid.size(), ' ')},
        {"one-over-limit", valid + std::string(65537 - valid.size(), ' ')},
    };
    if (answers.count(mode)) {
        writeAll(STDOUT_FILENO, answers.at(mode));
    } else if (mode == "hang-silently") {
        hang();
    } else if (mode == "silent") {
        return 0;
    } else if (mode == "noise-on-error-output") {
        writeAll(STDERR_FILENO, std::string(1 << 20, 'e'));
        writeAll(STDOUT_FILENO, valid);
    } else if (mode == "report-environment") {
        std::string variables;
        for (char** entry = environ; *entry; ++entry)
            variables += std::string(variables.empty() ? "" : ";") + *entry;
        writeAll(STDOUT_FILENO, stateOf("variables", variables));
    } else if (mode.ends_with("-after-answer")) {
        writeAll(STDOUT_FILENO, valid);
        if (mode == "exit-1-after-answer")
            return 1;
        if (mode == "killed-after-answer")
            raise(SIGKILL);
        if (mode == "close-output-after-answer")
            close(STDOUT_FILENO);
        hang();
    } else {
        writeAll(STDOUT_FILENO, R"({"error":"unknown fake behaviour"})");
    }
    return 0;
}
