#include "QuillmarkKit/Intake/Unpacker.h"

#include <archive.h>
#include <archive_entry.h>
#include <locale.h>

#include <algorithm>
#include <array>
#include <new>
#include <utility>

#include "QuillmarkKit/Support/LoadedLibrary.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::size_t longestName = 500;  // bytes that are kept of it
constexpr int mostFilters = 2;            // one that unpacks, and the file itself

/// What is used of libarchive, which is loaded with the first packed file: with the libraries that it brings,
/// it would make every start of the program half as slow again.
class Library : public LoadedLibrary {
public:
    Library() : LoadedLibrary("libarchive.so.13") {}

    decltype(&::archive_read_new) readNew = find("archive_read_new");
    decltype(&::archive_read_free) readFree = find("archive_read_free");
    decltype(&::archive_read_open) open = find("archive_read_open");
    decltype(&::archive_read_next_header) nextHeader = find("archive_read_next_header");
    decltype(&::archive_read_data) readData = find("archive_read_data");
    decltype(&::archive_read_data_skip) skipData = find("archive_read_data_skip");
    decltype(&::archive_filter_bytes) filterBytes = find("archive_filter_bytes");
    decltype(&::archive_filter_count) filterCount = find("archive_filter_count");
    decltype(&::archive_entry_filetype) fileType = find("archive_entry_filetype");
    decltype(&::archive_entry_pathname) pathName = find("archive_entry_pathname");
    decltype(&::archive_entry_is_encrypted) isEncrypted = find("archive_entry_is_encrypted");

    // Each form by itself: what reads all of them runs other programs for some.
    using Support = decltype(&::archive_read_support_format_raw);
    Support raw = find("archive_read_support_format_raw"), empty = find("archive_read_support_format_empty"),
            tar = find("archive_read_support_format_tar"),
            zip = find("archive_read_support_format_zip_streamable"),
            gzip = find("archive_read_support_filter_gzip"),
            bzip2 = find("archive_read_support_filter_bzip2"), xz = find("archive_read_support_filter_xz"),
            zstandard = find("archive_read_support_filter_zstd");
};

const Library& library() {
    static const Library loaded;
    return loaded;
}

/// What reads this form; nothing for one that is not unpacked here.
Library::Support supportOf(PackedForm form) {
    switch (form) {
        case PackedForm::gzip:
            return library().gzip;
        case PackedForm::bzip2:
            return library().bzip2;
        case PackedForm::xz:
            return library().xz;
        case PackedForm::zstandard:
            return library().zstandard;
        case PackedForm::zip:
            return library().zip;
        case PackedForm::tar:
            return library().tar;
        default:
            return nullptr;
    }
}

/// While one lives, this thread's texts are UTF-8, whatever the user's language: libarchive gives no other
/// names.
class UTF8Names {
public:
    UTF8Names() : m_before(uselocale(ours())) {}
    ~UTF8Names() { uselocale(m_before); }
    UTF8Names(const UTF8Names&) = delete;
    UTF8Names& operator=(const UTF8Names&) = delete;

private:
    static locale_t ours() {
        static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return utf8;  // nothing, where there is none: then the thread's stays
    }
    const locale_t m_before;
};

std::string shownName(const char* name) {
    std::string_view text = name ? name : "";
    const bool isCut = text.size() > longestName;
    if (isCut) text.remove_prefix(text.size() - longestName);
    return (isCut ? "…" : "") + forDisplay(repairedUTF8(text));
}

constexpr std::array<std::uint32_t, 256> tableOfCRC32() {
    std::array<std::uint32_t, 256> values{};
    for (std::uint32_t i = 0; i < values.size(); ++i) {
        std::uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit) value = value >> 1 ^ ((value & 1) != 0 ? 0xEDB88320 : 0);
        values[i] = value;
    }
    return values;
}

/// The check value of RFC 1952, section 8, which libarchive passes over.
class CRC32 {
public:
    void add(std::string_view bytes) {
        for (const char c : bytes)
            m_value = table[(m_value ^ static_cast<unsigned char>(c)) & 0xFF] ^ m_value >> 8;
        m_size += static_cast<std::uint32_t>(bytes.size());
    }
    /// Whether these are the last eight bytes of a gzip file with a content so long and another value. Of one
    /// that is several put together they tell of the last alone, whose length is another.
    bool isBelied(std::string_view end) const {
        const auto number = [&](std::size_t at) {
            std::uint32_t value = 0;
            for (std::size_t i = 4; i-- > 0;) value = value << 8 | static_cast<unsigned char>(end[at + i]);
            return value;
        };
        return end.size() == endSize && number(4) == m_size && number(0) != ~m_value;
    }
    static constexpr std::size_t endSize = 8;

private:
    static constexpr auto table = tableOfCRC32();
    std::uint32_t m_value = 0xFFFFFFFF, m_size = 0;
};

Refusal fault(ArchiveFault fault) { return {Refusal::Archive{fault}}; }

}  // namespace

bool Unpacker::canUnpack(PackedForm form) {
    if (!library().isWhole() || !supportOf(form)) return false;
    // Some builds of libarchive would run a program for it, and say so.
    archive* const reader = library().readNew();
    const bool isBuiltIn = reader && supportOf(form)(reader) == ARCHIVE_OK;
    if (reader) library().readFree(reader);
    return isBuiltIn;
}

bool Unpacker::isArchive(PackedForm form) { return form == PackedForm::zip || form == PackedForm::tar; }

struct Unpacker::State {
    State(PackedForm packedForm, Input packedInput, UnpackedSize& unpackedSize)
        : form(packedForm), input(std::move(packedInput)), size(unpackedSize) {}
    ~State() {
        if (reader) library().readFree(reader);
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    const PackedForm form;
    const Input input;
    UnpackedSize& size;
    archive* const reader = library().readNew();
    bool isOpen = false, hasFailed = false, isAtEnd = true;
    std::uint64_t counted = 0, given = 0;      // bytes
    std::size_t number = 0;                    // of the file
    std::optional<Refusal> inputRefusal = {};  // why nothing more comes in
    CRC32 check = {};
    std::string end = {};  // of a gzip file

    /// Counts what came out since the last time. False when that is too much.
    bool count() {
        const auto bytes =
            static_cast<std::uint64_t>(std::max(library().filterBytes(reader, 0), la_int64_t{0}));
        const std::uint64_t now = std::max(given, bytes);
        size.unpacked += now - std::exchange(counted, now);
        return !size.isTooMuch();
    }

    Refusal whyFailed() {
        hasFailed = isAtEnd = true;
        if (inputRefusal) return *inputRefusal;
        return fault(size.isTooMuch() ? ArchiveFault::tooLarge : ArchiveFault::damaged);
    }

    static la_ssize_t read(archive*, void* self, const void** bytes) {
        State& state = *static_cast<State*>(self);
        if (!state.count()) return ARCHIVE_FATAL;
        auto next = state.input();
        if (auto* refusal = std::get_if<Refusal>(&next)) {
            state.inputRefusal = std::move(*refusal);
            return ARCHIVE_FATAL;
        }
        const auto piece = std::get<std::string_view>(next);
        if (state.form == PackedForm::gzip) {
            state.end += piece.substr(piece.size() - std::min(piece.size(), CRC32::endSize));
            state.end.erase(0, state.end.size() - std::min(state.end.size(), CRC32::endSize));
        }
        *bytes = piece.data();
        return static_cast<la_ssize_t>(piece.size());
    }

    bool open() {
        const Library& use = library();
        if (!reader) throw std::bad_alloc();
        isOpen = true;
        supportOf(form)(reader);
        if (!isArchive(form)) {
            use.raw(reader);
            use.empty(reader);
        }
        return use.open(reader, this, nullptr, read, nullptr) == ARCHIVE_OK;
    }
};

Unpacker::Unpacker(PackedForm form, Input input, UnpackedSize& size)
    : m_state(std::make_unique<State>(form, std::move(input), size)) {}

Unpacker::~Unpacker() = default;

std::optional<Unpacker::File> Unpacker::next() {
    State& state = *m_state;
    const UTF8Names names;
    while (!state.hasFailed) {
        archive_entry* entry = nullptr;
        if (!state.isOpen && !state.open()) return File{.refusal = state.whyFailed()};
        const int result = library().nextHeader(state.reader, &entry);
        if (result == ARCHIVE_EOF) return std::nullopt;
        // A warning is about a name or a time.
        if (result < ARCHIVE_WARN || !state.count()) return File{.refusal = state.whyFailed()};
        ++state.number;
        if (library().filterCount(state.reader) > mostFilters) {
            state.hasFailed = true;
            return File{.refusal = fault(ArchiveFault::tooDeep)};
        }
        if (library().fileType(entry) != AE_IFREG) continue;
        File file{.number = state.number};
        if (isArchive(state.form)) file.name = shownName(library().pathName(entry));
        state.isAtEnd = false;
        if (library().isEncrypted(entry) == 1) {
            library().skipData(state.reader);
            state.isAtEnd = true;
            file.refusal = fault(ArchiveFault::encrypted);
        }
        return file;
    }
    return std::nullopt;
}

std::optional<Refusal> Unpacker::readOn(ByteBuffer& bytes, std::size_t limit) {
    State& state = *m_state;
    while (!state.isAtEnd && bytes.size() < limit) {
        if (bytes.size() == bytes.capacity()) bytes.grow(std::min(2 * bytes.capacity() + 1, limit));
        const std::size_t room = std::min(bytes.capacity(), limit) - bytes.size();
        const la_ssize_t count = library().readData(state.reader, bytes.data() + bytes.size(), room);
        if (count < 0) {  // of a check value that is wrong there is a warning
            const bool canGoOn = count == ARCHIVE_WARN && !state.inputRefusal;
            Refusal refusal = state.whyFailed();
            state.hasFailed = !canGoOn;
            return refusal;
        }
        state.isAtEnd = count == 0;
        if (state.form == PackedForm::gzip) {
            state.check.add({bytes.data() + bytes.size(), static_cast<std::size_t>(count)});
            if (state.isAtEnd && state.check.isBelied(state.end)) return state.whyFailed();
        }
        state.given += static_cast<std::uint64_t>(count);
        bytes.setSize(bytes.size() + static_cast<std::size_t>(count));
        if (!state.count()) return state.whyFailed();
    }
    return std::nullopt;
}

bool Unpacker::isAtEnd() const { return m_state->isAtEnd; }

}  // namespace quillmark
