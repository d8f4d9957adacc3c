#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Support/Once.h"

namespace quillmark {

struct SystemResolverOptions {
    /// IPv4 addresses of DNS servers in place of those that this computer was told of (resolv.conf), with the
    /// port they listen at: for tests.
    std::vector<std::string> servers = {};
    int port = 53;
    std::chrono::seconds timeOut{5};  ///< of one server, which is asked twice
};

/// The servers that this computer asks for everything else, over UDP, or TCP for what is too long for that.
/// They learn the names, and so does whoever listens on the way. Answers are remembered as long as it lives,
/// failures are not; however many callers ask the same question at once, it is asked once.
///
/// A name that DNS cannot hold does not exist, nor does one that nobody on any network owns (RFC 6761); those
/// that mean something on this computer's own network are asked for.
class SystemResolver : public DNSResolver {
public:
    explicit SystemResolver(SystemResolverOptions options = {}) : m_options(std::move(options)) {}

    /// Failure texts are "system: timed out" and the like.
    DNSAnswer lookup(std::string_view name, DNSRecordType type, const Patience& patience = {}) override;
    std::string source(std::string_view name, DNSRecordType type) override;

private:
    const SystemResolverOptions m_options;
    Once<DNSAnswer> m_answers;
};

}  // namespace quillmark
