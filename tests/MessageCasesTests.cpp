// Whole messages and what a report must say of them and must not: tests/messages/*.case. A case is lines that
// say what is done and expected, in their order, then a line "--", then the message; behind a line "==" comes
// the next. A line is one of
//
//     sign: d=bank.example; h=from:subject                  a signature on top, its key published
//     unpublished: d=bank.example; h=from                   the same, its key not published
//     publish: evil.example                                 Ed25519's key at another name
//     seal: lists.example                                   an ARC set on top, its key published
//     above: Subject: Urgent                                a header line on top
//     replace: Pay => Pay evil                              the first such text becomes another
//     dns: _dmarc.bank.example TXT v=DMARC1; p=reject       what DNS answers, "!" that it doesn't
//     validated: _dmarc.bank.example TXT                    that DNS says it validated this answer
//     answered by: dns.example                              who gives all answers
//     registered: bank.example 2026-11-20T10:00:00Z         what the registry says; else nobody asks it
//     known: rsa NAME TIME..TIME [FILE]                     a key that a name had, as seen here or by a file
//     at: 2026-11-21T10:00:00Z                              the time of the check, instead of that one
//     verdict: signatureBroken                              its kind
//     notes: shownNotSigned, actsUnsigned / notes: none     the kinds of all notes, in their order
//     note: shownNotSigned / no note: shownNotSigned        whether a note of that kind is earned
//     headline: TEXT / no headline: TEXT                    whether it stands with the headline
//     as signed: TEXT / not signed: TEXT                    whether it stands in a message as it was signed
//     says: TEXT / never: TEXT                              whether it stands in the text report
//
// and "#" begins a comment. A signature is Ed25519's, or, with "rsa " before its tags, RSA's; with "simple "
// before them it takes every blank as it is. In all of them
// \r, \n, \t, \0 and \xNN stand for bytes. The message's lines end in CR LF.

#include "QuillmarkKit/Checks/Signer.h"
#include "QuillmarkKit/Lookups/RDAP.h"
#include "QuillmarkKit/Verifier.h"
#include "Wording/Banner.h"
#include "Wording/TextReport.h"
#include "tests/Test.h"

namespace quillmark::test {
namespace {

const Reader reader{Language::english, Platform::other, [](Date) { return ZoneOffset{}; }};

std::string unescaped(std::string_view text) {
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char next = text[i] == '\\' && i + 1 < text.size() ? text[i + 1] : '\0';
        const std::size_t simple = std::string_view("rnt0\\").find(next);
        if (next == 'x') {
            bytes += static_cast<char>(std::stoi(std::string(text.substr(i + 2, 2)), nullptr, 16));
            i += 3;
        } else if (text[i] == '\\' && simple != std::string_view::npos) {
            bytes += std::string_view("\r\n\t\0\\", 5)[simple];
            ++i;
        } else {
            bytes += text[i];
        }
    }
    return bytes;
}

/// Takes what stands before `mark` off the front, and the mark; all of it without one.
std::string_view takeBefore(std::string_view& text, std::string_view mark) {
    const auto found = std::min(text.find(mark), text.size());
    const std::string_view before = text.substr(0, found);
    text.remove_prefix(std::min(found + mark.size(), text.size()));
    return before;
}

/// Keys of names, by their lower-case names.
class KnownKeys : public KeyMemory {
public:
    std::map<std::string, std::vector<KnownKey>> keys = {};
    std::vector<KnownKey> keysOf(std::string_view name) override { return keys[asciiLowered(name)]; }
    void saw(std::string_view, std::span<const std::string>, const std::string&, bool) override {}
};

class Case {
public:
    explicit Case(std::string_view text) {
        std::string_view head = takeBefore(text, "--\n");
        for (char c : text) {
            if (c == '\n') m_message += '\r';
            m_message += c;
        }
        while (!head.empty()) {
            std::string_view value = takeBefore(head, "\n");
            if (value.empty() || value.starts_with('#')) continue;
            const std::string name(takeBefore(value, ": "));
            prepare(name, unescaped(value));
        }
    }

    void check() const {
        const auto registry = m_registered.empty() ? nullptr : std::make_shared<StaticRegistry>(m_registered);
        const auto resolver = std::make_shared<StaticResolver>(m_answers, m_failing, StaticResolver::Texts{},
                                                               std::nullopt, sources());
        const MailMessage message = MailMessage::parse(m_message);
        const auto verification = Verifier(resolver, registry, PublicSuffixList::shared(), {}, {}, m_known)
                                      .examine(message, std::nullopt, m_now, UUID::random());
        const ProofReport& report = verification.report;
        const std::string text = textReport(report, reader);
        const Banner banner = bannerOf(report, reader);
        std::string beside = banner.headline + '\n' + banner.explanation;
        for (const BannerLine& line : banner.cautions) beside += '\n' + line.text + '\n' + line.sentence;
        for (const Remark& remark : banner.remarks) beside += '\n' + remark.text;
        std::string all;
        for (const ReportNote& note : report.notes)
            all += (all.empty() ? "" : ", ") + std::string(casesOf(&note)[note.value.index()]);
        if (all.empty()) all = "none";
        SCOPED_TRACE(text);
        // What is found of a broken signature changes nothing but notes, and holds by itself.
        const Verifier plain(resolver, registry, PublicSuffixList::shared(), {}, {Undoing::off});
        ProofReport judged = report, without = plain.verify(message, std::nullopt, m_now, report.id);
        judged.notes.clear();
        without.notes.clear();
        EXPECT_EQ(judged, without);
        std::string allSigned;
        for (const MailMessage& asSigned : verification.asSigned) {
            allSigned += asSigned.bytes();
            const ProofReport again = plain.verify(asSigned, std::nullopt, m_now);
            const bool isPassed = caseNameOf(again.arc.status) == "pass";  // of a forwarder's signature
            EXPECT_EQ(std::ranges::count(again.dkim, DKIMResult::Status::pass, &DKIMResult::status) +
                          static_cast<int>(isPassed),
                      1);
        }
        for (const auto& [name, value] : m_expected) {
            const bool isThere = name.ends_with("verdict") ? nameOf(report.verdict.kind) == value
                                 : name == "notes"         ? all == value
                                 : name.ends_with("note")
                                     ? (", " + all + ",").find(", " + value + ",") != std::string::npos
                                 : name.ends_with("headline") ? beside.find(value) != std::string::npos
                                 : name.ends_with("signed")   ? allSigned.find(value) != std::string::npos
                                                              : text.find(value) != std::string::npos;
            const bool isWanted = !name.starts_with("no ") && name != "never" && name != "not signed";
            EXPECT_EQ(isThere, isWanted) << name << ": " << value;
        }
        EXPECT_FALSE(m_expected.empty());
    }

private:
    void prepare(const std::string& name, const std::string& value) {
        std::string_view rest = value;
        if (name == "sign" || name == "unpublished") {
            const bool isRSA = rest.starts_with("rsa ");
            if (isRSA || rest.starts_with("ed25519 ")) takeBefore(rest, " ");
            Signature signature;
            if (rest.starts_with("simple ")) {
                takeBefore(rest, " ");
                signature.canonicalization = "simple/simple";
            }
            const bool hasSelector = rest.find("s=") != std::string_view::npos;
            signature.tags = "v=1; " + std::string(hasSelector ? "" : "s=key; ") + std::string(rest);
            const PrivateKey& key = isRSA ? rsaKey() : ed25519Key();
            m_message = signedMessage(m_message, signature, key);
            takeBefore(rest, "d=");
            if (name == "sign") {
                publish("key._domainkey." + asciiLowered(takeBefore(rest, ";")) + "|TXT", keyRecord(key));
            }
        } else if (name == "publish") {
            m_answers[value + "|TXT"] = DNSAnswer::records({keyRecord(ed25519Key())});
        } else if (name == "seal") {
            static const SigningKey key = SigningKey::newEd25519().value();
            Signer::ARCOptions options;
            options.domain = value;
            options.selector = "arc";
            options.results = "mx." + value + "; dkim=pass header.d=bank.example; spf=pass; dmarc=pass";
            const auto set = Signer::arcSet(MailMessage::parse(m_message), options, key);
            m_message = set.seal + "\r\n" + set.messageSignature + "\r\n" + set.results + "\r\n" + m_message;
            m_answers["arc._domainkey." + value + "|TXT"] = DNSAnswer::records({Signer::keyRecord(key)});
        } else if (name == "registered") {
            const std::string domain(takeBefore(rest, " "));
            m_registered[domain] = parsedRFC3339(rest);
            if (rest == "!") m_registered[domain] = "closed";
        } else if (name == "validated") {
            const std::string asked(takeBefore(rest, " "));
            m_answers[asked + "|" + std::string(rest)].isValidated = true;
        } else if (name == "answered by") {
            m_source = value;
        } else if (name == "above") {
            m_message = value + "\r\n" + m_message;
        } else if (name == "replace") {
            const std::string from(takeBefore(rest, " => "));
            const auto found = m_message.find(from);
            ASSERT_NE(found, std::string::npos) << value;
            m_message.replace(found, from.size(), rest);
        } else if (name == "dns") {
            const std::string asked(takeBefore(rest, " "));
            if (rest == "!") {
                m_failing.insert(asked);
                return;
            }
            const std::string key = asked + "|" + std::string(takeBefore(rest, " "));
            publish(key, std::string(rest));
        } else if (name == "known") {
            const PrivateKey& key = takeBefore(rest, " ") == "rsa" ? rsaKey() : ed25519Key();
            const std::string of(takeBefore(rest, " "));
            const Date first = parsedRFC3339(takeBefore(rest, "..")).value();
            const Date last = parsedRFC3339(takeBefore(rest, " ")).value();
            KnownKey known{of, keyRecord(key), first, last, "dns.example", false};
            if (!rest.empty()) known.file = KnownKey::File{std::string(rest), m_now};
            m_known->keys[of].push_back(std::move(known));
        } else if (name == "at") {
            m_now = parsedRFC3339(value).value();
        } else {
            const std::set<std::string> known = {"verdict",     "notes", "note",  "no note",   "headline",
                                                 "no headline", "says",  "never", "as signed", "not signed"};
            ASSERT_TRUE(known.contains(name)) << name;
            m_expected.emplace_back(name, value);
        }
    }

    /// Behind what is published there already.
    void publish(const std::string& key, const std::string& record) {
        const auto known = m_answers[key].data();
        std::vector<std::string> records(known.begin(), known.end());
        if (std::ranges::count(records, record) == 0) records.push_back(record);
        m_answers[key] = DNSAnswer::records(std::move(records));
    }

    StaticResolver::Texts sources() const {
        StaticResolver::Texts sources;
        for (const auto& [question, answer] : m_answers) sources[question] = m_source;
        return sources;
    }

    std::string m_message = {}, m_source = {};
    StaticResolver::Answers m_answers = {};
    std::shared_ptr<KnownKeys> m_known = std::make_shared<KnownKeys>();
    std::set<std::string, std::less<>> m_failing = {};
    StaticRegistry::Entries m_registered = {};
    Date m_now = *parsedRFC3339("2026-11-21T10:00:00Z");
    std::vector<std::pair<std::string, std::string>> m_expected = {};
};

TEST(MessageCases, all) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(QUILLMARK_TESTS "/messages")) {
        const std::string text = contents(entry.path());
        for (std::string_view rest = text; !rest.empty(); ++count) {
            std::string each(takeBefore(rest, "\n==\n"));
            if (!each.ends_with('\n')) each += '\n';
            SCOPED_TRACE(entry.path().filename().string() + ": " + each.substr(0, each.find('\n')));
            Case(each).check();
        }
    }
    EXPECT_GE(count, 100u);
}

}  // namespace
}  // namespace quillmark::test
