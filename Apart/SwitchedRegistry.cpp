#include "Apart/SwitchedRegistry.h"

namespace quillmark {

void RegistrySwitch::set(bool isOn) {
    std::unique_lock lock(m_mutex);
    std::stop_source on = m_on;
    if (isOn && on.stop_requested()) m_on = std::stop_source();
    lock.unlock();  // those who are told may look at the switch
    if (!isOn) on.request_stop();
}

std::stop_token RegistrySwitch::whileOn() const {
    const std::lock_guard lock(m_mutex);
    return m_on.get_token();
}

std::optional<Date> SwitchedRegistry::registrationDate(std::string_view domain, const Patience& patience) {
    const std::stop_token on = m_switch->whileOn();
    std::stop_source either;
    const auto end = [&either] { either.request_stop(); };
    const std::stop_callback whenStopped(patience.stop, end);
    const std::stop_callback whenSwitchedOff(on, end);
    if (on.stop_requested()) throw RDAPError(switchedOff);
    try {
        return m_registry->registrationDate(domain, {either.get_token(), patience.deadline});
    } catch (const RDAPError&) {
        // cppcheck-suppress identicalConditionAfterEarlyExit; it may have been switched off meanwhile
        if (on.stop_requested()) throw RDAPError(switchedOff);
        throw;
    }
}

}  // namespace quillmark
