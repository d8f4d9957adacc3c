#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "QuillmarkKit/Report.h"
#include "Wording/Reader.h"

namespace quillmark {

/// The tone that is called this, as in the report's JSON.
std::optional<Tone> toneNamed(std::string_view name);

/// Counts verdicts, by their kind and by the domain that signed.
class CheckSummary {
public:
    /// `hasCautions`: the headline alone would mislead.
    void add(const Verdict& verdict, bool hasCautions);
    void addProblem() { ++m_problems; }
    void addPassedOver(std::int64_t count) { m_passedOver += count; }

    /// Two tables: how often each verdict, and the domains that signed most, with the tones of their
    /// verdicts. Domains are `wrapped` in so many columns of a terminal; 0: each stands in one line.
    std::string text(const Reader& reader, std::size_t width = 0) const;

    /// Whether any verdict has this tone or a worse one; from good on, caution, unknown and bad prove less.
    /// One with cautions is at least as bad as caution.
    bool isAnyAsBadAs(Tone tone) const;

private:
    using Counts = std::array<std::int64_t, 4>;  // by tone

    std::map<std::pair<VerdictKind, Tone>, std::int64_t> m_verdicts = {};
    std::map<std::string, Counts> m_domains = {};
    Counts m_unsigned = {}, m_otherDomains = {};
    std::int64_t m_withCautions = 0, m_problems = 0, m_passedOver = 0;
};

}  // namespace quillmark
