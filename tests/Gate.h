#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <stop_token>
#include <utility>

#include "QuillmarkKit/Lookups/DNS.h"

namespace quillmark::test {

/// Holds callers back while it is closed.
class Gate {
public:
    void set(bool isOpen) {
        const std::lock_guard lock(m_mutex);
        m_isOpen = isOpen;
        m_changed.notify_all();
    }
    void open() { set(true); }
    /// False when it was stopped.
    bool pass(const std::stop_token& stop) {
        std::unique_lock lock(m_mutex);
        ++waiting;
        const bool passed = m_changed.wait(lock, stop, [&] { return m_isOpen; });
        --waiting;
        return passed;
    }
    std::atomic<int> waiting = 0;

private:
    std::mutex m_mutex = {};
    std::condition_variable_any m_changed = {};
    bool m_isOpen = false;
};

/// Answers as another does, by default that no name exists, but only while its gate is open.
class GatedResolver : public DNSResolver {
public:
    explicit GatedResolver(
        std::shared_ptr<DNSResolver> resolver = std::make_shared<StaticResolver>(StaticResolver::Answers()))
        : m_resolver(std::move(resolver)) {}
    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience = {}) override {
        ++asked;
        if (!gate.pass(patience.stop)) throw DNSLookupError("stopped");
        if (isOffline) throw DNSLookupError("no resolver answered");
        return m_resolver->lookup(name, type, patience);
    }
    Gate gate = {};
    std::atomic<int> asked = 0;
    std::atomic<bool> isOffline = false;

private:
    std::shared_ptr<DNSResolver> m_resolver;
};

}  // namespace quillmark::test
