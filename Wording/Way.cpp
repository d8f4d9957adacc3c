#include "Wording/Way.h"

#include <algorithm>
#include <span>
#include <utility>
#include <variant>

#include "QuillmarkKit/Mail/PublicSuffixList.h"
#include "Wording/NoteSentences.h"
#include "Wording/Quoted.h"

namespace quillmark {

namespace {

using Station = Way::Station;
using Kind = Station::Kind;
using Vouch = Station::Vouch;

constexpr std::size_t mostBetween = 10;   // stations between the first and the last ones
constexpr std::size_t mostSteps = 200;    // that are looked at; the latest
constexpr std::size_t longestName = 100;  // bytes
constexpr std::size_t longestHost = 255;  // bytes, which are more than DNS can hold

bool isSame(std::string_view a, std::string_view b) {
    if (a.size() > longestHost || b.size() > longestHost) return false;
    return PublicSuffixList::shared().sameOrganization(a, b);
}

std::string nameOf(std::string_view domain) { return quotedWord(cutInside(domain, longestName)); }

/// Steps that follow each other in one organization.
using Group = std::span<const PathStep>;

std::vector<Group> groupsOf(std::span<const PathStep> steps) {
    std::vector<Group> groups;
    for (std::size_t first = 0, next = 0; first < steps.size(); first = next) {
        const std::string& by = steps[first].hop.by.value_or(std::string());
        for (next = first + 1; next < steps.size(); ++next) {
            const std::string other = steps[next].hop.by.value_or(std::string());
            if (by != other && !isSame(by, other)) break;
        }
        groups.push_back(steps.subspan(first, next - first));
    }
    return groups;
}

/// From when the station before let go of it until this one did.
std::optional<std::chrono::milliseconds> delayOf(Group group) {
    std::optional<std::chrono::milliseconds> all;
    for (const PathStep& each : group) {
        if (each.delay) all = all.value_or(std::chrono::milliseconds(0)) + *each.delay;
    }
    return all;
}

/// Puts the stations of one report together.
class Traveller {
public:
    Traveller(const ProofReport& report, const Reader& reader) : m_report(report), m_reader(reader) {}

    Station author() const {
        const Verdict& verdict = m_report.verdict;
        Station station{.kind = Kind::author};
        station.name =
            verdict.fromDomain.empty() ? m_reader.translate("unknown sender") : nameOf(verdict.fromDomain);
        station.lines.push_back(m_reader.translate("the sender’s domain"));
        const auto say = [&](std::optional<Tone> tone, std::string line) {
            station.tone = tone;
            station.lines.push_back(std::move(line));
        };
        const bool isOfSender = isSame(verdict.domain, verdict.fromDomain);
        switch (verdict.kind) {
            case VerdictKind::verified:
                station.vouch = Vouch::signature;
                say(Tone::good, m_reader.translate("signed it, unchanged since"));
                break;
            case VerdictKind::verifiedHeadersOnly:
                station.vouch = Vouch::signature;
                say(Tone::good, m_reader.translate("signed the header lines"));
                break;
            case VerdictKind::signedByOther:
                say({}, m_reader.translate("didn’t sign it"));
                break;
            case VerdictKind::signatureBroken:
                if (!isOfSender) {
                    say({}, m_reader.translate("didn’t sign it"));
                } else if (undone()) {
                    station.vouch = Vouch::signature;
                    say(Tone::caution, m_reader.translate("signed it as it was before the changes"));
                } else {
                    say(Tone::bad, m_reader.translate("its signature is broken"));
                }
                break;
            case VerdictKind::keyGone:
            case VerdictKind::couldNotCheck:
                if (isOfSender) {
                    say(Tone::unknown, m_reader.translate("its signature can’t be checked"));
                } else {
                    say({}, m_reader.translate("didn’t sign it"));
                }
                break;
            case VerdictKind::allowedServerOnly:
                say({}, m_reader.translate("didn’t sign it, but allows the server that sent it"));
                break;
            case VerdictKind::cannotProve:
                say({}, m_reader.translate("nothing shows that it is from there"));
                break;
        }
        return station;
    }

    std::optional<Station> signer() const {
        const Verdict& verdict = m_report.verdict;
        if (verdict.kind != VerdictKind::signedByOther) return std::nullopt;
        return Station{.kind = Kind::signer,
                       .vouch = Vouch::signature,
                       .tone = Tone::caution,
                       .name = nameOf(verdict.domain),
                       .lines = {m_reader.translate("signed it, and isn’t the sender")}};
    }

    Station forwarder(const ARCFinding::Hop& hop) const {
        Station station{.kind = Kind::forwarder, .instance = hop.instance, .name = nameOf(hop.sealer)};
        station.lines.push_back(m_reader.translate("forwarder"));
        if (std::holds_alternative<ARCFinding::Status::Unknown>(m_report.arc.status.value)) {
            station.tone = Tone::unknown;
            station.lines.push_back(m_reader.translate("its mark can’t be checked"));
        } else if (!hop.sealValid) {
            station.tone = Tone::bad;
            station.lines.push_back(m_reader.translate("its mark doesn’t hold"));
        } else {
            station.vouch = Vouch::seal;
            station.tone = Tone::good;
            station.lines.push_back(m_reader.translate("its mark holds, if you trust it"));
        }
        if (saysThatItHeld(hop) && m_report.verdict.kind == VerdictKind::signatureBroken)
            station.lines.push_back(m_reader.translate("says that the sender’s signature held here"));
        station.change = changeBy(hop);
        if (!station.change.empty()) station.tone = Tone::caution;
        return station;
    }

    Station server(Group group) const {
        const std::string by = group.back().hop.by.value_or(std::string());
        Station station{.name = by.empty() ? m_reader.translate("unnamed server") : nameOf(by)};
        if (group.size() > 1) {
            station.lines.push_back(
                m_reader.translateCount("%n server", "%n servers", static_cast<std::int64_t>(group.size())));
        }
        station.lines.push_back(m_reader.translate("by its own word"));
        addDelay(station, group);
        return station;
    }

    void addDelay(Station& station, Group group) const {
        const auto delay = delayOf(group);
        if (!delay) return;
        station.delay =
            delay->count() < 0 ? m_reader.translate("clocks disagree") : delayInWords(*delay, m_reader);
    }

    /// What was changed, where it isn't known where; else nothing.
    std::string changeSomewhere() const {
        if (!undone() || firstIntact()) return {};
        return changesInWords(*undone(), m_reader);
    }

private:
    const ReportNote::Undone* undone() const {
        const auto* found =
            m_report.verdict.kind == VerdictKind::signatureBroken ? undoneOf(m_report) : nullptr;
        return found && found->fromIsOfDomain ? found : nullptr;
    }

    /// The earliest forwarder whose mark fits the message as it is now: whatever was changed had been by
    /// then.
    const ARCFinding::Hop* firstIntact() const {
        if (!std::holds_alternative<ARCFinding::Status::Pass>(m_report.arc.status.value)) return nullptr;
        const auto found = std::ranges::find_if(m_report.arc.hops, [](const ARCFinding::Hop& hop) {
            return hop.sealValid && hop.messageSignature.status == DKIMResult::Status::pass &&
                   hop.messageSignature.bodyChecked;
        });
        return found == m_report.arc.hops.end() ? nullptr : &*found;
    }

    std::string changeBy(const ARCFinding::Hop& hop) const {
        if (!undone() || firstIntact() != &hop) return {};
        const std::string changes = changesInWords(*undone(), m_reader);
        return changes.empty() ? changes
                               : m_reader.translate("changed by the time it left here: %1", {changes});
    }

    bool saysThatItHeld(const ARCFinding::Hop& hop) const {
        const auto isBySender = [&](const NamedText& property) {
            return property.name == "header.d" && isSame(property.text, m_report.verdict.fromDomain);
        };
        return hop.sealValid &&
               std::ranges::any_of(hop.sawResults.methods, [&](const AuthResults::Method& method) {
                   return method.method == "dkim" && method.result == "pass" &&
                          std::ranges::any_of(method.properties, isBySender);
               });
    }

    const ProofReport& m_report;
    const Reader& m_reader;
};

/// Of more than are told the earliest, which anyone could have invented, and servers before forwarders.
std::size_t leaveOut(std::vector<Station>& between) {
    std::size_t left = between.size() - std::min(between.size(), mostBetween);
    const std::size_t all = left;
    std::erase_if(between,
                  [&](const Station& each) { return left > 0 && each.kind == Kind::server && left-- > 0; });
    between.erase(between.begin(), between.begin() + static_cast<std::ptrdiff_t>(left));
    return all;
}

}  // namespace

std::string delayInWords(std::chrono::milliseconds delay, const Reader& reader) {
    const std::int64_t seconds = std::chrono::duration_cast<std::chrono::seconds>(delay).count();
    if (seconds < 0) return reader.translate("before the step above, by its clock");
    if (seconds < 120) return reader.translateCount("after %n second", "after %n seconds", seconds);
    if (seconds < std::int64_t{2} * 3600)
        return reader.translateCount("after %n minute", "after %n minutes", seconds / 60);
    if (seconds < std::int64_t{48} * 3600)
        return reader.translateCount("after %n hour", "after %n hours", seconds / 3600);
    return reader.translateCount("after %n day", "after %n days", seconds / 86'400);
}

Way wayOf(const ProofReport& report, const std::optional<std::vector<PathStep>>& steps,
          const Reader& reader) {
    const Traveller traveller(report, reader);
    Way way;
    way.stations.push_back(traveller.author());
    if (auto signer = traveller.signer()) way.stations.push_back(std::move(*signer));
    const Group all = steps ? Group(*steps) : Group();
    const std::vector<Group> groups = groupsOf(all.last(std::min(all.size(), mostSteps)));
    std::vector<Station> between;
    auto hop = report.arc.hops.begin();
    for (const Group& group : groups) {
        const std::string by = group.front().hop.by.value_or(std::string());
        const auto own = std::find_if(hop, report.arc.hops.end(),
                                      [&](const ARCFinding::Hop& each) { return isSame(each.sealer, by); });
        // The marks of those that no line names stand before the last server, the reader's own.
        const bool isLast = &group == &groups.back();
        const auto until = own != report.arc.hops.end() || isLast ? own : hop;
        for (; hop != until; ++hop) between.push_back(traveller.forwarder(*hop));
        if (own == report.arc.hops.end()) {
            between.push_back(traveller.server(group));
            continue;
        }
        Station station = traveller.forwarder(*hop++);
        traveller.addDelay(station, group);
        between.push_back(std::move(station));
    }
    for (; hop != report.arc.hops.end(); ++hop) between.push_back(traveller.forwarder(*hop));
    if (const std::size_t left = leaveOut(between) + all.size() - std::min(all.size(), mostSteps)) {
        way.stations.push_back({.kind = Kind::leftOut,
                                .name = reader.translateCount("%n more step", "%n more steps",
                                                              static_cast<std::int64_t>(left))});
    }
    std::ranges::move(between, std::back_inserter(way.stations));
    way.stations.push_back({.kind = Kind::reader, .name = reader.translate("you")});
    if (const std::string changes = traveller.changeSomewhere(); !changes.empty()) {
        way.remarks.push_back(
            reader.translate("Changed on the way, and nothing shows where: %1.", {changes}));
    }
    return way;
}

std::string wayInWords(const Way& way, const Reader& reader) {
    std::string all;
    for (const Station& each : way.stations) {
        if (!all.empty()) all += ". ";
        std::string station =
            each.delay.empty() ? each.name : reader.translate("%1: %2", {each.delay, each.name});
        for (const std::string& line : each.lines) reader.addTo(station, line);
        if (!each.change.empty()) reader.addTo(station, each.change);
        all += station;
    }
    for (const std::string& remark : way.remarks) all += ". " + remark;
    return reader.translate("The way it came: %1", {all});
}

}  // namespace quillmark
