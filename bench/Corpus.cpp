// Makes the corpus of `bench/performance`: 2,000 signed messages of 2 KB to 45 MB, a mailbox of 10,000, the
// answers file that checks them, and beside each class of size and the mailbox the plan of its cryptography
// for `bench_floor`. The same bytes every time.
//
//     bench_corpus KEYS FOLDER

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <random>

#include "FloorPlan.h"
#include "QuillmarkKit/Checks/ARC.h"
#include "QuillmarkKit/Checks/DKIMKeys.h"
#include "QuillmarkKit/Checks/Signer.h"
#include "QuillmarkKit/Mail/TagList.h"
#include "QuillmarkKit/Support/Base64.h"
#include "QuillmarkKit/Support/DER.h"
#include "QuillmarkKit/Support/Text.h"

namespace {

using namespace quillmark;
namespace fs = std::filesystem;

constexpr std::int64_t signedAt = 1'790'000'000;
constexpr unsigned domainCount = 200;

std::string contents(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A key, with what of it stands in DNS and in a plan.
struct Key {
    SigningKey key;
    std::string floorKey;
};

class Keys {
public:
    explicit Keys(const fs::path& folder) {
        for (const char* name : {"rsa2048-1", "rsa2048-2", "rsa2048-3", "rsa2048-4", "rsa1024", "ed25519"}) {
            auto key = SigningKey::fromPEM(contents(folder / (std::string(name) + ".pem")));
            if (!key) throw std::runtime_error(std::string("no key ") + name);
            // A record of the RSA form holds a SubjectPublicKeyInfo, the plan what is inside it.
            const auto record = std::get<DKIMKeyRecord>(DKIMKeyRecord::parse(Signer::keyRecord(*key)));
            m_keys.push_back(
                {*key, key->type() == SigningKey::Type::rsa ? pkcs1(record.publicKey) : record.publicKey});
        }
    }
    /// Six of eight signatures have RSA-2048 keys.
    std::size_t pick(unsigned random) const {
        return random % 16 < 13 ? random % 4 : random % 16 < 15 ? 4 : 5;
    }
    const Key& operator[](std::size_t index) const { return m_keys[index]; }
    std::size_t size() const { return m_keys.size(); }

private:
    /// What is inside a SubjectPublicKeyInfo (RFC 5280, section 4.1.2.7).
    static std::string pkcs1(std::string_view publicKeyInfo) {
        std::string_view content = takeDER(publicKeyInfo, 0x30).value();
        takeDER(content, 0x30);                                        // the algorithm
        return std::string(takeDER(content, 0x03).value().substr(1));  // a bit string without unused bits
    }
    std::vector<Key> m_keys;
};

std::string selector(std::size_t key) { return "s" + std::to_string(key); }
std::string domain(unsigned number) { return "sender" + std::to_string(number) + ".example"; }

std::string bodyOf(std::size_t size, std::minstd_rand& random) {
    static constexpr std::string_view words[] = {"letter",  "answer ", "meeting", "on",    "the",
                                                 "invoice", "of  ",    "last",    "month", "project,",
                                                 "we",      "are",     "glad",    "to"};
    const bool isAttachment = size > 50'000;
    std::string body;
    body.reserve(size + 100);
    while (body.size() < size) {
        if (isAttachment) {  // base64 lines, as nearly all large mail is
            std::string line(76, 'A');
            for (char& c : line)
                c = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"[random() >> 5 & 63];
            body += line + "\r\n";
            continue;
        }
        for (int i = 0; i < 9; ++i) body.append(words[random() % std::size(words)]) += ' ';
        body.back() = '\r';
        body += '\n';
    }
    return body;
}

std::string messageOf(std::size_t size, unsigned from, unsigned serial, std::minstd_rand& random) {
    const std::string number = std::to_string(serial), name = domain(from);
    std::string text;
    for (int hop = 0; hop < 3; ++hop) {
        text += "Received: from mail" + std::to_string(hop) + "." + name + " (mail." + name +
                " [198.51.100." + std::to_string(1 + from % 200) +
                "])\r\n\tby mx.receiver.example with ESMTPS id " + number +
                "\r\n\t(version=TLS1_3 cipher=TLS_AES_256_GCM_SHA384);\r\n\tMon, 21 Sep 2026 10:00:0" +
                std::to_string(9 - hop) + " +0200\r\n";
    }
    text += "Return-Path: <bounce-" + number + "@" + name + ">\r\n";
    text +=
        "Authentication-Results: mx.receiver.example; spf=pass smtp.mailfrom=" + name + "; dmarc=pass\r\n";
    text += "From: \"Sender " + number + "\" <office@" + name + ">\r\nTo: somebody@receiver.example\r\n";
    text += "Subject: =?utf-8?Q?Nachricht_Nummer_" + number + "_f=C3=BCr_Sie?=\r\n";
    text += "Date: Mon, 21 Sep 2026 10:00:00 +0200\r\nMessage-ID: <" + number + "@" + name + ">\r\n";
    text +=
        "MIME-Version: 1.0\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n";
    text += "List-Unsubscribe: <https://" + name + "/leave?id=" + number +
            ">\r\nX-Mailer: made for measuring\r\n\r\n";
    return text + bodyOf(size > text.size() ? size - text.size() : 0, random);
}

/// One signature field of a finished message, as a plan has it.
bench::FloorSignature planned(const MailMessage& message, const HeaderField& field, const Key& key) {
    bench::FloorSignature planned{key.key.type() == SigningKey::Type::ed25519, key.floorKey};
    const std::string_view value = field.valueBytes();
    const TagList tags = TagList::parse(value);
    TextList names;
    for (std::string_view list = tags.value("h").value(); !list.empty();) {
        names.push_back(trimmed(takePiece(list, ':')));
    }
    struct : ByteSink {
        std::string bytes;
        void add(std::string_view more) override { bytes += more; }
    } sink;
    const auto canonicalization = CanonicalizationPair::parse(tags.value("c")).value();
    addSignedHeaderData(message, names, field, canonicalization.header, sink);
    planned.input = sink.bytes;
    planned.signature = decodedBase64(tags.compactValue("b").value()).value();
    return planned;
}

/// The seal of the newest of these sets.
bench::FloorSignature plannedSeal(std::span<const ARCSet> sets, const Key& key) {
    bench::FloorSignature planned{key.key.type() == SigningKey::Type::ed25519, key.floorKey};
    struct : ByteSink {
        std::string bytes;
        void add(std::string_view more) override { bytes += more; }
    } sink;
    for (const ARCSet& set : sets) {
        canonicalizeHeader(set.results->raw, Canonicalization::relaxed, sink);
        sink.add("\r\n");
        canonicalizeHeader(set.messageSignature->raw, Canonicalization::relaxed, sink);
        sink.add("\r\n");
        const bool isLast = &set == &sets.back();
        canonicalizeHeader(isLast ? withEmptiedSignature(set.seal->raw) : set.seal->raw,
                           Canonicalization::relaxed, sink);
        if (!isLast) sink.add("\r\n");
    }
    planned.input = sink.bytes;
    planned.signature =
        decodedBase64(TagList::parse(sets.back().seal->valueBytes()).compactValue("b").value()).value();
    return planned;
}

/// A message with its signatures on top, and the plan of them.
std::pair<std::string, bench::FloorMessage> made(std::size_t size, unsigned serial, const Keys& keys) {
    std::minstd_rand random(serial + 1);
    const unsigned from = static_cast<unsigned>(random()) % domainCount;
    std::string text = messageOf(size, from, serial, random);
    bench::FloorMessage plan;
    std::vector<std::size_t> used;  // keys, of the topmost field first
    const unsigned count = random() % 10 < 7 ? 1 : random() % 3 < 2 ? 2 : 3;
    for (unsigned i = 0; i < count; ++i) {
        const std::size_t key = keys.pick(static_cast<unsigned>(random() >> 4));
        const bool isSimple = random() % 10 == 0;
        (isSimple ? plan.hashesSimpleBody : plan.hashesRelaxedBody) = true;
        const auto form = isSimple ? Canonicalization::simple : Canonicalization::relaxed;
        const Signer::Options options{
            .domain = domain(i == 0 ? from : (from + i) % domainCount),
            .selector = selector(key),
            .headers = {"from", "to", "subject", "date", "message-id", "mime-version", "content-type"},
            .time = signedAt,
            .canonicalization = {Canonicalization::relaxed, form}};
        text = Signer::dkimSignature(MailMessage::parse(text), options, keys[key].key) + "\r\n" + text;
        used.insert(used.begin(), key);
    }
    const unsigned sets = serial % 10 == 0 ? 1 + static_cast<unsigned>(random()) % 3 : 0;
    if (sets > 0) plan.hashesRelaxedBody = true;
    for (unsigned i = 0; i < sets; ++i) {
        const Signer::ARCOptions options{.domain = domain((from + 7 + i) % domainCount),
                                         .selector = selector(i),
                                         .results = "mx.list.example; dkim=pass",
                                         .time = signedAt};
        const auto fields = Signer::arcSet(MailMessage::parse(text), options, keys[i].key);
        text = fields.seal + "\r\n" + fields.messageSignature + "\r\n" + fields.results + "\r\n" + text;
    }
    const auto message = MailMessage::parse(text);
    std::size_t next = 0;
    for (const auto position : message.positions("DKIM-Signature")) {
        plan.signatures.push_back(planned(message, message.headers()[position], keys[used[next++]]));
    }
    const auto chain = arcSets(message, StrayARCFields::refuse).value();
    for (std::size_t i = 0; i < chain.size(); ++i) {
        plan.signatures.push_back(planned(message, *chain[i].messageSignature, keys[i]));
        plan.signatures.push_back(plannedSeal(std::span(chain).first(i + 1), keys[i]));
    }
    return {std::move(text), std::move(plan)};
}

nlohmann::json answers(const Keys& keys) {
    nlohmann::json table = nlohmann::json::object();
    for (unsigned i = 0; i < domainCount; ++i) {
        table[domain(i) + "|TXT"] = {"v=spf1 ip4:198.51.100." + std::to_string(1 + i % 200) +
                                     " include:_spf." + domain(i) + " -all"};
        table["_spf." + domain(i) + "|TXT"] = {"v=spf1 ip4:203.0.113.0/24 ?all"};
        table["_dmarc." + domain(i) + "|TXT"] = {"v=DMARC1; p=reject; adkim=r; aspf=r; rua=mailto:d@" +
                                                 domain(i)};
        for (std::size_t key = 0; key < keys.size(); ++key) {
            table[selector(key) + "._domainkey." + domain(i) + "|TXT"] = {Signer::keyRecord(keys[key].key)};
        }
    }
    return {{"answers", std::move(table)}, {"at", "2026-10-01T12:00:00Z"}};
}

/// Of ten messages six have 2 KB, three 10 KB, one 100 KB.
void makeMailbox(const fs::path& folder, unsigned serial, const Keys& keys) {
    constexpr unsigned messages = 10'000;
    const std::string path = (folder / "mailbox.mbox").string();
    std::ofstream mailbox(path, std::ios::binary), plan(folder / "mailbox.plan", std::ios::binary);
    std::uint64_t end = 0;
    for (unsigned i = 0; i < messages; ++i) {
        const std::size_t size = i % 10 < 6 ? 2'000 : i % 10 < 9 ? 10'000 : 100'000;
        auto [text, message] = made(size, serial + i, keys);
        const std::string line = "From sender@example.org Mon Sep 21 10:00:00 2026\r\n";
        mailbox << line << text << "\r\n";
        message.path = path;
        message.begin = end + line.size();
        message.size = text.size();
        end = message.begin + message.size + 2;
        put(plan, message);
    }
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) return std::fputs("usage: bench_corpus KEYS FOLDER\n", stderr), 2;
    const Keys keys(arguments[1]);
    const fs::path folder = arguments[2];
    const struct {
        const char* name;
        unsigned messages;
        std::size_t size;
    } classes[] = {{"2KB", 1000, 2'000},   {"10KB", 600, 10'000},   {"100KB", 300, 100'000},
                   {"1MB", 90, 1'000'000}, {"10MB", 8, 10'000'000}, {"45MB", 2, 45'000'000}};
    unsigned serial = 0;
    for (const auto& size : classes) {
        fs::create_directories(folder / size.name);
        std::ofstream plan(folder / (std::string(size.name) + ".plan"), std::ios::binary);
        for (unsigned i = 0; i < size.messages; ++i, ++serial) {
            auto [text, message] = made(size.size, serial, keys);
            char name[16];
            std::snprintf(name, sizeof name, "%04u.eml", serial);
            message.path = (folder / size.name / name).string();
            message.size = text.size();
            std::ofstream(message.path, std::ios::binary) << text;
            put(plan, message);
        }
    }
    makeMailbox(folder, serial, keys);
    std::ofstream(folder / "answers.json") << answers(keys);
}
