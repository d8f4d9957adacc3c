#pragma once

#include <memory>
#include <string_view>

#include "QuillmarkKit/Lookups/DNS.h"
#include "QuillmarkKit/Support/HTTP.h"

/// Who is asked for DNS records: by an option, or by the window's settings.
namespace quillmark {

/// In place of the URL of a DNS service: those that are asked when nobody chooses, and the servers that this
/// computer asks for everything else.
constexpr std::string_view usualResolver = "usual", systemResolver = "system";

/// Whether it is one of the words, or the URL of a service (`DoHEndpoint::ofURL`).
bool isResolverChoice(std::string_view choice);

/// Whom the choice means; of what is none, the usual services. From any thread.
std::shared_ptr<DNSResolver> chosenResolver(std::string_view choice, const std::shared_ptr<HTTP>& http);

}  // namespace quillmark
