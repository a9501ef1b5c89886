#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

namespace vell {

// The one failure of package, action and workflow validation: a single sentence that
// reaches the user as it stands. Validation throws it; each subsystem catches it at
// exactly one boundary and turns it into a status or message.
class ModuleProblem final : public std::exception {
public:
    explicit ModuleProblem(QString message);

    const QString& message() const noexcept { return m_message; }
    const char* what() const noexcept override { return m_utf8.constData(); }

private:
    QString m_message;
    QByteArray m_utf8;
};

} // namespace vell
