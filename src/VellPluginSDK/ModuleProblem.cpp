#include "VellPluginSDK/ModuleProblem.h"

namespace vell {

ModuleProblem::ModuleProblem(QString message)
    : m_message(std::move(message))
    , m_utf8(m_message.toUtf8()) {}

} // namespace vell
