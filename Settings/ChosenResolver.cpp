#include "Settings/ChosenResolver.h"

#include <utility>

#include "QuillmarkKit/Lookups/DoHResolver.h"
#include "QuillmarkKit/Lookups/SystemResolver.h"

namespace quillmark {

bool isResolverChoice(std::string_view choice) {
    return choice == usualResolver || choice == systemResolver || DoHEndpoint::ofURL(choice);
}

std::shared_ptr<DNSResolver> chosenResolver(std::string_view choice, const std::shared_ptr<HTTP>& http) {
    if (choice == systemResolver) return std::make_shared<SystemResolver>();
    DoHOptions options;
    if (const auto service = DoHEndpoint::ofURL(choice)) options.endpoints = {*service};
    return std::make_shared<DoHResolver>(http, std::move(options));
}

}  // namespace quillmark
