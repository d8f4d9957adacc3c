#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <utility>

namespace quillmark {

/// Values by name of which each is made once, however many want it at a time: who asks while one is being
/// made waits for it. Safe from many threads at once.
template <typename Value>
class Once {
public:
    using Clock = std::chrono::steady_clock;

    /// Whom a value that was made is for.
    enum class For {
        everybody,     ///< kept as long as this lives
        thoseWhoWait,  ///< who asks later has it made anew
        maker,         ///< one of those who wait takes the maker's place
    };
    struct Made {
        Value value = {};
        For whom = For::everybody;
    };

    /// The value of this name: kept, made by `make()`, which gives a `Made`, or by somebody else who is at
    /// it. Null when the stop or the deadline came while it was waited for. What `make` throws is for the
    /// maker alone.
    template <typename Make>
    std::shared_ptr<const Value> get(const std::string& name, const std::stop_token& stop,
                                     Clock::time_point deadline, const Make& make) {
        std::unique_lock lock(m_mutex);
        for (;;) {
            if (const auto kept = m_kept.find(name); kept != m_kept.end()) return kept->second;
            const auto [place, isOurs] = m_questions.try_emplace(name);
            if (isOurs) break;
            if (!place->second) place->second = std::make_shared<Question>();
            const auto question = place->second;
            if (!question->settled.wait_until(lock, stop, deadline, [&] { return question->isSettled; }))
                return nullptr;
            if (question->value) return question->value;
        }
        lock.unlock();
        std::shared_ptr<const Value> value;
        try {
            Made made = make();
            value = std::make_shared<const Value>(std::move(made.value));
            settle(name, value, made.whom);
        } catch (...) {
            settle(name, nullptr, For::maker);  // or those who wait would wait for ever
            throw;
        }
        return value;
    }

    /// A value that is kept; null when there is none.
    std::shared_ptr<const Value> kept(const std::string& name) const {
        const std::lock_guard lock(m_mutex);
        const auto found = m_kept.find(name);
        return found != m_kept.end() ? found->second : nullptr;
    }

private:
    /// For those who wait; there is none while nobody does.
    struct Question {
        bool isSettled = false;
        std::shared_ptr<const Value> value = {};
        std::condition_variable_any settled = {};
    };

    void settle(const std::string& name, const std::shared_ptr<const Value>& value, For whom) {
        const std::lock_guard lock(m_mutex);
        const auto question = m_questions.extract(name);
        if (!question.empty() && question.mapped()) {
            question.mapped()->isSettled = true;
            if (whom != For::maker) question.mapped()->value = value;
            question.mapped()->settled.notify_all();
        }
        if (whom == For::everybody) m_kept.emplace(name, value);
    }

    mutable std::mutex m_mutex = {};
    std::map<std::string, std::shared_ptr<const Value>, std::less<>> m_kept = {};
    std::map<std::string, std::shared_ptr<Question>, std::less<>> m_questions = {};  // being made now
};

}  // namespace quillmark
