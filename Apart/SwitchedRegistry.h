#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string_view>
#include <utility>

#include "QuillmarkKit/Lookups/RDAP.h"

namespace quillmark {

/// Whether registries may be asked. From any thread.
class RegistrySwitch {
public:
    explicit RegistrySwitch(bool isOn) { set(isOn); }
    void set(bool isOn);
    bool isOn() const { return !whileOn().stop_requested(); }
    /// Stops when it is switched off.
    std::stop_token whileOn() const;

private:
    mutable std::mutex m_mutex = {};
    std::stop_source m_on = {};
};

/// Stands before a registry: once it is switched off, no request goes out, and those under way end.
class SwitchedRegistry : public RegistrationLookup {
public:
    /// What every lookup fails with then.
    static constexpr const char* switchedOff = "looking up registration dates was switched off";

    SwitchedRegistry(std::shared_ptr<RegistrationLookup> registry, std::shared_ptr<const RegistrySwitch> isOn)
        : m_registry(std::move(registry)), m_switch(std::move(isOn)) {}

    std::optional<Date> registrationDate(std::string_view domain, const Patience& patience = {}) override;
    std::string source(std::string_view domain) override { return m_registry->source(domain); }

private:
    const std::shared_ptr<RegistrationLookup> m_registry;
    const std::shared_ptr<const RegistrySwitch> m_switch;
};

}  // namespace quillmark
