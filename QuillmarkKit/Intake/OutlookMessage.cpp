#include "QuillmarkKit/Intake/OutlookMessage.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <utility>
#include <variant>

#include "QuillmarkKit/Intake/AttachedMessages.h"
#include "QuillmarkKit/Intake/Containers.h"
#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Mail/Message.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

// The compound file, [MS-CFB], section 2: sectors that are chained by a table, some of them a directory.

constexpr std::string_view signature = "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1";
constexpr std::size_t headerSize = 512, entrySize = 128, longestEntryName = 64;
constexpr std::size_t tablesInHeader = 109;  // places of the table's sectors, from 0x4C on
constexpr std::uint32_t lastSector = 0xFFFFFFFA, none = 0xFFFFFFFF;  // above are marks
constexpr std::size_t miniShift = 6, miniCutoff = 4096;              // bytes

std::uint32_t number32(std::string_view bytes, std::size_t at) {
    std::uint32_t value = 0;
    if (bytes.size() < 4 || at > bytes.size() - 4) return value;
    for (std::size_t i = 4; i-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return value;
}
std::size_t number16(std::string_view bytes, std::size_t at) { return number32(bytes, at) & 0xFFFF; }

std::string fromUTF16(std::string_view bytes) {
    UTF16Decoder decoder(ByteOrder::little);
    std::string text = decoder.decode(bytes);
    return text + decoder.end();
}

/// The streams of a compound file, by their storage and name. Every chain is followed as far as what it holds
/// may go, so that a circle ends.
class CompoundFile {
public:
    static constexpr std::size_t root = 0;
    enum class Kind { storage = 1, stream = 2 };

    explicit CompoundFile(std::string_view file) : m_file(file), m_left(file.size()) {
        const std::size_t shift = number16(file, 0x1E);
        m_isWhole = beginsCompoundFile(file) && file.size() >= headerSize && (shift == 9 || shift == 12) &&
                    number16(file, 0x20) == miniShift && number32(file, 0x38) == miniCutoff;
        if (!m_isWhole) return;
        m_shift = shift;
        readTable();
        readDirectory();
    }

    /// The place of what is called so in a storage, for the functions below.
    std::optional<std::size_t> find(std::size_t storage, const std::string& name, Kind kind) const {
        const auto found = m_entries.find({storage, name});
        if (found == m_entries.end() || typeOf(found->second) != kind) return std::nullopt;
        return found->second;
    }
    /// The storages in a storage whose names begin so, in the order of these.
    std::vector<std::size_t> storages(std::size_t storage, std::string_view begin) const {
        std::vector<std::size_t> list;
        for (auto each = m_entries.lower_bound({storage, std::string(begin)});
             each != m_entries.end() && each->first.first == storage && each->first.second.starts_with(begin);
             ++each) {
            if (typeOf(each->second) == Kind::storage) list.push_back(each->second);
        }
        return list;
    }
    /// The bytes of a stream; nothing when they aren't all there, or when all together have more than the
    /// file.
    std::optional<std::string> stream(std::size_t place) {
        const std::string_view entry = entryAt(place);
        const std::size_t size = sizeOf(entry);
        if (size > m_left) return std::nullopt;
        m_left -= size;
        const std::uint32_t first = number32(entry, 0x74);
        if (size >= miniCutoff) return chained(m_file.substr(sectorSize()), m_table, m_shift, first, size);
        if (!m_hasMini) readMini();
        return chained(m_mini, m_miniTable, miniShift, first, size);
    }

private:
    std::size_t sectorSize() const { return std::size_t{1} << m_shift; }
    std::size_t sectorCount() const { return m_file.size() >> m_shift; }
    std::string_view sector(std::uint32_t number) const {
        const std::uint64_t begin = (std::uint64_t{number} + 1) << m_shift;
        if (begin >= m_file.size()) return {};
        return m_file.substr(static_cast<std::size_t>(begin), sectorSize());
    }
    std::string_view entryAt(std::size_t place) const {
        return std::string_view(m_directory).substr(place * entrySize, entrySize);
    }
    Kind typeOf(std::size_t place) const { return static_cast<Kind>(entryAt(place)[0x42]); }
    /// In files with small sectors the upper half means nothing.
    std::size_t sizeOf(std::string_view entry) const {
        const std::uint64_t high = m_shift == 9 ? 0 : number32(entry, 0x7C);
        return static_cast<std::size_t>(high << 32 | number32(entry, 0x78));
    }

    void addNumbers(std::vector<std::uint32_t>& numbers, std::string_view bytes) const {
        for (std::size_t at = 0; at + 4 <= bytes.size(); at += 4) numbers.push_back(number32(bytes, at));
    }

    /// The table says for each sector which is the next. Where it lies itself stands in the header and, when
    /// it is long, in sectors of which each ends with the number of the next.
    void readTable() {
        std::vector<std::uint32_t> places;
        addNumbers(places, m_file.substr(0x4C, 4 * tablesInHeader));
        std::uint32_t next = number32(m_file, 0x44);
        for (std::size_t i = 0; next < lastSector && i < sectorCount(); ++i) {
            addNumbers(places, sector(next));
            if (sector(next).size() < sectorSize()) break;
            next = std::exchange(places.back(), none);
        }
        for (const std::uint32_t place : places) {
            if (m_table.size() >= sectorCount()) break;
            if (place < lastSector) addNumbers(m_table, sector(place));
        }
    }

    /// What a chain of sectors holds; nothing when it ends before there are `size` bytes.
    static std::optional<std::string> chained(std::string_view sectors,
                                              const std::vector<std::uint32_t>& table, std::size_t shift,
                                              std::uint32_t number, std::size_t size) {
        std::string bytes;
        while (bytes.size() < size) {
            const std::uint64_t begin = std::uint64_t{number} << shift;
            if (number >= lastSector || begin >= sectors.size()) return std::nullopt;
            const std::size_t length = std::min(std::size_t{1} << shift, size - bytes.size());
            const std::string_view piece = sectors.substr(static_cast<std::size_t>(begin), length);
            bytes += piece;
            number = number < table.size() ? table[number] : none;
            if (piece.size() < length) break;
        }
        return bytes.size() == size ? std::optional(std::move(bytes)) : std::nullopt;
    }

    /// All that a chain holds.
    std::string chain(std::uint32_t number) const {
        std::string bytes;
        for (std::size_t i = 0; number < lastSector && i < sectorCount(); ++i) {
            bytes += sector(number);
            number = number < m_table.size() ? m_table[number] : none;
        }
        return bytes;
    }

    void readMini() {
        m_hasMini = true;
        const std::string_view entry = entryAt(root);
        const std::size_t size = std::min(sizeOf(entry), m_file.size());
        m_mini =
            chained(m_file.substr(sectorSize()), m_table, m_shift, number32(entry, 0x74), size).value_or("");
        addNumbers(m_miniTable, chain(number32(m_file, 0x3C)));
    }

    /// The entries of a storage are a tree of their own, to which the storage has the way. Each is visited
    /// once, whatever ways there are.
    void readDirectory() {
        m_directory = chain(number32(m_file, 0x30));
        m_directory.resize(m_directory.size() / entrySize * entrySize);
        const std::size_t count = m_directory.size() / entrySize;
        std::vector<char> isVisited(count);
        std::vector<std::pair<std::size_t, std::size_t>> pending;  // place, storage
        const auto add = [&](std::size_t at, std::size_t offset, std::size_t storage) {
            const std::uint32_t place = number32(entryAt(at), offset);
            if (place < count && std::exchange(isVisited[place], 1) == 0)
                pending.emplace_back(place, storage);
        };
        if (count == 0) return;
        isVisited[root] = 1;
        for (add(root, 0x4C, root); !pending.empty();) {
            const auto [place, storage] = pending.back();
            pending.pop_back();
            const std::string_view entry = entryAt(place);
            const std::size_t length = std::clamp(number16(entry, 0x40), std::size_t{2}, longestEntryName);
            m_entries.emplace(std::pair(storage, fromUTF16(entry.substr(0, length - 2))), place);
            add(place, 0x44, storage);
            add(place, 0x48, storage);
            if (typeOf(place) == Kind::storage) add(place, 0x4C, place);
        }
    }

    const std::string_view m_file;
    std::size_t m_left;  // bytes of streams that may still be read
    bool m_isWhole = false, m_hasMini = false;
    std::size_t m_shift = 9;
    std::vector<std::uint32_t> m_table = {}, m_miniTable = {};
    std::string m_directory = {}, m_mini = {};
    std::map<std::pair<std::size_t, std::string>, std::size_t> m_entries = {};
};

// The message in it, [MS-OXMSG], section 2: a property is a stream with its number and type in its name.

/// A text, whichever of its two types it has; empty when there is none.
std::string textOf(CompoundFile& file, std::size_t storage, const std::string& property) {
    for (const bool isUTF16 : {true, false}) {
        const auto place = file.find(storage, "__substg1.0_" + property + (isUTF16 ? "001F" : "001E"),
                                     CompoundFile::Kind::stream);
        const auto bytes = place ? file.stream(*place) : std::nullopt;
        if (!bytes) continue;
        std::string text = isUTF16 ? fromUTF16(*bytes) : *bytes;
        return text.substr(0, std::min(text.find('\0'), text.size()));
    }
    return "";
}

std::optional<std::string> binaryOf(CompoundFile& file, std::size_t storage, const std::string& property) {
    const auto place = file.find(storage, "__substg1.0_" + property + "0102", CompoundFile::Kind::stream);
    return place ? file.stream(*place) : std::nullopt;
}

std::string_view withoutEmptyLines(std::string_view text) { return trimmed(text, "\r\n"); }

/// The header lines, and no line end behind the last: there is no body.
std::string headerOf(CompoundFile& file, std::size_t message) {
    constexpr std::string_view title = "Microsoft Mail Internet Headers Version 2.0";
    const ByteBuffer text = Bytes::normalizedLineEnds(ByteBuffer(textOf(file, message, "007D")));
    std::string_view lines = withoutEmptyLines(text.view());
    if (lines.starts_with(title)) lines = withoutEmptyLines(lines.substr(title.size()));
    lines = lines.substr(0, lines.find("\r\n\r\n"));  // behind an empty line stand those of parts
    return std::string(lines);
}

/// The body of a message that was signed by S/MIME: it is kept as it was received, with its content fields
/// above it, as the one attachment.
std::optional<std::string> originalBody(CompoundFile& file, std::size_t message,
                                        const std::vector<std::size_t>& attachments) {
    const bool isSigned = equalsIgnoringCase(textOf(file, message, "001A"), "IPM.Note.SMIME.MultipartSigned");
    if (!isSigned || attachments.size() != 1) return std::nullopt;
    const auto content = binaryOf(file, attachments.front(), "3701");
    if (!content) return std::nullopt;
    const MailMessage entity = MailMessage::parse(*content);
    return entity.body() ? std::optional(std::string(*entity.body())) : std::nullopt;
}

bool isMessage(std::string_view bytes) {
    return std::holds_alternative<MailMessage>(messageIn(ByteBuffer(bytes), ParseMode::strict));
}

/// A message of such a file, and how far its attachments were gone through.
struct Level {
    std::size_t message = 0;
    std::vector<std::size_t> attachments = {};
    std::size_t next = 0, count = 0;
};

/// The message's bytes, and whether its body is among them.
std::pair<std::string, bool> read(CompoundFile& file, Level& level) {
    level.attachments = file.storages(level.message, "__attach_version1.0_#");
    std::string bytes = headerOf(file, level.message);
    if (bytes.empty()) return {};
    const auto body = originalBody(file, level.message, level.attachments);
    if (!body) return {std::move(bytes), false};
    level.attachments.clear();  // its parts are in the body
    bytes += "\r\n\r\n" + *body;
    const bool hasBody = MailMessage::parse(bytes).body().has_value();
    return {std::move(bytes), hasBody};
}

/// The message that is attached there, if it is one, and its level when it is kept in pieces.
std::optional<OutlookMessage::Attached> attachedAt(CompoundFile& file, std::size_t attachment,
                                                   Level& inside) {
    const auto storage = file.find(attachment, "__substg1.0_3701000D", CompoundFile::Kind::storage);
    if (storage) {
        inside.message = *storage;
        auto [bytes, hasBody] = read(file, inside);
        if (!isMessage(bytes)) return std::nullopt;
        return OutlookMessage::Attached{.bytes = ByteBuffer(bytes), .isOutlooks = true, .hasBody = hasBody};
    }
    const bool isNamed = equalsIgnoringCase(textOf(file, attachment, "370E"), "message/rfc822") ||
                         asciiLowered(textOf(file, attachment, "3707")).ends_with(".eml");
    const auto content = isNamed ? binaryOf(file, attachment, "3701") : std::nullopt;
    if (!content || !isMessage(*content)) return std::nullopt;
    return OutlookMessage::Attached{.bytes = ByteBuffer(*content)};
}

}  // namespace

bool beginsCompoundFile(std::string_view head) { return head.starts_with(signature); }

std::optional<OutlookMessage> outlookMessage(std::string_view bytes) {
    CompoundFile file(bytes);
    std::vector<Level> levels{{.message = CompoundFile::root}};
    auto [header, hasBody] = read(file, levels.front());
    if (!isMessage(header)) return std::nullopt;
    OutlookMessage message{.bytes = ByteBuffer(header), .hasBody = hasBody};
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next == level.attachments.size()) {
            levels.pop_back();
            continue;
        }
        Level inside;
        auto attached = attachedAt(file, level.attachments[level.next++], inside);
        if (!attached) continue;
        ++level.count;
        const bool isTooDeep = levels.size() > AttachedMessages::deepest;
        if (isTooDeep || message.attached.size() == AttachedMessages::mostOf) {
            message.isAnyLeftOut = true;
            continue;
        }
        for (const Level& each : levels) attached->position.push_back(each.count);
        message.attached.push_back(std::move(*attached));
        levels.push_back(std::move(inside));
    }
    return message;
}

}  // namespace quillmark
