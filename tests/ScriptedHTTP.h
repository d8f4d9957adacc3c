#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "QuillmarkKit/Support/HTTP.h"

namespace quillmark::test {

/// An HTTP of which the test says what it answers.
class ScriptedHTTP : public HTTP {
public:
    using Answer = std::function<HTTPResponse(const HTTPRequest&, std::stop_token)>;
    explicit ScriptedHTTP(Answer answer) : m_answer(std::move(answer)) {}

    HTTPResponse get(const HTTPRequest& request, std::stop_token stop) override {
        {
            const std::lock_guard lock(m_mutex);
            m_urls.push_back(request.url);
        }
        return m_answer(request, stop);
    }
    std::vector<std::string> takeURLs() {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_urls, {});
    }

private:
    const Answer m_answer;
    std::mutex m_mutex;
    std::vector<std::string> m_urls;
};

}  // namespace quillmark::test
