#include "QuillmarkKit/Intake/MailboxReader.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <limits>
#include <set>
#include <span>
#include <system_error>
#include <utility>

#include "QuillmarkKit/Intake/AttachedMessages.h"
#include "QuillmarkKit/Intake/Containers.h"
#include "QuillmarkKit/Intake/Unpacker.h"
#include "QuillmarkKit/Support/Files.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t pieceSize = 4 * longestHead;
constexpr std::string_view indexEnding = ".msf";
constexpr std::size_t mostProperties = 1'000'000;  // bytes behind a message with a count in front
constexpr std::size_t deepestArchive = 3;          // archives in each other; a compressed file counts as one
constexpr std::size_t packedPieceSize = 16'384;    // small, since much may come out of it at once
constexpr std::string_view olmFolder = "com.microsoft.__Messages";

/// Whether the file begins as a mail program's index of a mailbox does.
bool isIndex(const std::string& path) {
    constexpr std::string_view begin = "// <!-- <mdb:mork:";
    std::error_code error;
    if (!fs::is_regular_file(path, error)) return false;
    std::string head(begin.size(), '\0');
    std::ifstream(path, std::ios::binary).read(head.data(), static_cast<std::streamsize>(head.size()));
    return head == begin;
}

/// Whether a mailbox that begins so has lines, the first at least, that end with CR alone, as on old systems:
/// separators are looked for where LF stands.
bool hasCRs(std::string_view head) {
    if (head.starts_with("\xEF\xBB\xBF")) head.remove_prefix(3);
    head.remove_prefix(std::min(head.find_first_not_of("\r\n"), head.size()));
    const auto end = head.find_first_of("\r\n");
    if (!head.starts_with("From ") || end == std::string_view::npos || head[end] == '\n') return false;
    return end + 1 == head.size() || (head[end + 1] != '\r' && head[end + 1] != '\n');
}

/// The bytes of an open file, or of one in an archive; UTF-16 comes as UTF-8.
class FileBytes {
public:
    enum class Ownership { ours, callers };

    FileBytes(int descriptor, Ownership ownership) : m_descriptor(descriptor), m_ownership(ownership) {
        if (fstat(descriptor, &m_status) != 0 || !isRegular() || m_status.st_size <= 0) return;
        // Of a file that we are given something may have been read.
        const off_t read = ownership == Ownership::callers ? lseek(descriptor, 0, SEEK_CUR) : 0;
        m_left = static_cast<std::size_t>(std::max(m_status.st_size - std::max(read, off_t{0}), off_t{0}));
    }
    /// The archive must live as long.
    explicit FileBytes(Unpacker& archive)
        : m_descriptor(-1), m_ownership(Ownership::callers), m_archive(&archive) {}
    FileBytes(FileBytes&& other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, -1)),
          m_ownership(other.m_ownership),
          m_archive(other.m_archive),
          m_status(other.m_status),
          m_left(other.m_left),
          m_decoder(std::move(other.m_decoder)),
          m_isBehindCR(other.m_isBehindCR),
          m_hasEnded(other.m_hasEnded) {}
    FileBytes& operator=(FileBytes&&) = delete;
    ~FileBytes() {
        if (m_ownership == Ownership::ours && m_descriptor >= 0) close(m_descriptor);
    }

    const struct stat& status() const { return m_status; }
    bool isRegular() const { return S_ISREG(m_status.st_mode); }
    bool isFolder() const { return S_ISDIR(m_status.st_mode); }
    bool hasEnded() const { return m_hasEnded; }

    /// What the bytes read so far, and all that come, are.
    void decodeAs(ByteOrder order, ByteBuffer& bytes) {
        m_decoder.emplace(order);
        bytes = decoded(bytes.view());
    }

    /// The bytes of a mailbox that were read so far, and all that come, get LF in place of CR.
    void endLinesWithLF(ByteBuffer& bytes) {
        if (!hasCRs(bytes.view())) return;
        m_isBehindCR = false;
        replaceCRs(bytes, 0);
    }

    /// Appends what comes until there are `limit` bytes (of UTF-16 somewhat more), or until the end. Adds to
    /// `count` what was read.
    std::optional<Refusal> readOn(ByteBuffer& bytes, std::size_t limit, std::uint64_t& count,
                                  const std::stop_token& stop) {
        while (!m_hasEnded && bytes.size() < limit) {
            const std::size_t before = bytes.size();
            if (!m_decoder) {
                if (auto refusal = readBytes(bytes, limit, count, stop)) return refusal;
            } else {
                ByteBuffer piece(pieceSize);
                if (auto refusal = readBytes(piece, pieceSize, count, stop)) return refusal;
                const ByteBuffer text = decoded(piece.view());
                bytes.grow(std::max(before + text.size(), std::min(2 * bytes.capacity(), limit)));
                std::ranges::copy(text.view(), bytes.data() + before);
                bytes.setSize(before + text.size());
            }
            if (m_isBehindCR) replaceCRs(bytes, before);
        }
        return std::nullopt;
    }

private:
    std::optional<Refusal> readBytes(ByteBuffer& bytes, std::size_t limit, std::uint64_t& count,
                                     const std::stop_token& stop) {
        if (m_archive) {
            auto refusal = m_archive->readOn(bytes, limit);
            m_hasEnded = bytes.size() < limit;
            return refusal;
        }
        const bool mayWait = !isRegular() && !isFolder();  // else what is read is never cut off
        const std::size_t before = bytes.size(), most = before + std::min(m_left, limit - before);
        if (auto refusal =
                quillmark::readOn(m_descriptor, mayWait, bytes, most, mayWait ? stop : std::stop_token()))
            return refusal;
        const std::size_t length = bytes.size() - before;
        count += length;
        if (m_left != unknown) m_left -= length;
        m_hasEnded = bytes.size() < limit;
        // Of a message that is cut off the signature would be called broken.
        if (m_hasEnded && m_left != unknown && m_left > 0)
            return Refusal{Refusal::Unreadable{"It became shorter while it was read"}};
        return std::nullopt;
    }

    ByteBuffer decoded(std::string_view bytes) {
        std::string text = m_decoder->decode(bytes);
        if (m_hasEnded) text += m_decoder->end();
        return ByteBuffer(text);
    }

    void replaceCRs(ByteBuffer& bytes, std::size_t from) {
        std::size_t size = from;
        for (std::size_t i = from; i < bytes.size(); ++i) {
            const char c = bytes.data()[i];
            const bool endsPair = std::exchange(*m_isBehindCR, c == '\r') && c == '\n';
            if (!endsPair) bytes.data()[size++] = c == '\r' ? '\n' : c;
        }
        bytes.setSize(size);
    }

    static constexpr std::size_t unknown = std::numeric_limits<std::size_t>::max();

    int m_descriptor;
    Ownership m_ownership;
    Unpacker* const m_archive = nullptr;
    struct stat m_status = {};
    std::size_t m_left = unknown;  // of a file that is as long as the system says
    std::optional<UTF16Decoder> m_decoder = {};
    std::optional<bool> m_isBehindCR = {};  // nothing unless lines end with CR alone
    bool m_hasEnded = false;
};

/// The files of a path: itself, or those in the folder and the folders in it.
class FileWalk {
public:
    FileWalk(std::string path, std::string name) : m_root(std::move(path)), m_name(std::move(name)) {}

    struct File {
        std::string path, name;
        std::optional<Refusal> refusal = {};  // of a folder that can't be read
    };
    File root() const { return {m_root, m_name}; }
    /// The path itself first, whatever is there: of a folder, `enter` is what goes on.
    std::optional<File> next() {
        if (!std::exchange(m_hasBegun, true)) return root();
        while (!m_pending.empty()) {
            const std::string path = std::move(m_pending.back());
            m_pending.pop_back();
            struct stat status = {};
            // Gone since its folder was read, or out of reach.
            if (stat(path.c_str(), &status) != 0) return File{path, nameOf(path), unreadable(errno)};
            if (S_ISREG(status.st_mode) && status.st_size == 0) {
                ++m_passedOver;  // a mailbox without messages, or a mark
                continue;
            }
            if (S_ISREG(status.st_mode)) return File{path, nameOf(path)};
            if (!S_ISDIR(status.st_mode)) continue;
            if (auto refusal = enter(path, status)) return File{path, nameOf(path), std::move(refusal)};
        }
        return std::nullopt;
    }
    /// Queues what is in a folder, unless it was there already. Why it can't, or nothing.
    std::optional<Refusal> enter(const std::string& folder, const struct stat& status) {
        if (!m_seen.emplace(status.st_dev, status.st_ino).second) return std::nullopt;
        const int error = queue(folder);
        return error == 0 ? std::nullopt : std::optional(unreadable(error));
    }

    /// How many files that mail programs keep beside their mailboxes weren't given.
    std::int64_t passedOver() const { return m_passedOver; }

private:
    std::string nameOf(std::string_view path) const {
        std::string_view below = path.substr(m_root.size());
        while (below.starts_with('/')) below.remove_prefix(1);
        if (below.empty()) return m_name;
        const bool isNameless = m_name.empty() || m_name == "." || m_name == "..";
        return (isNameless ? "" : m_name + "/") + repairedUTF8(below);
    }

    /// The error, or 0.
    int queue(const std::string& folder) {
        std::vector<std::string> names;
        std::error_code error;
        for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
            names.push_back(entry->path().filename().string());
        if (error) return error.value();
        std::ranges::sort(names, std::greater());  // the last is taken first
        const auto has = [&](const std::string& name) {
            return std::ranges::binary_search(names, name, std::greater());
        };
        const bool isMaildir = has("cur") && has("new") && has("tmp");
        const std::string prefix = folder.ends_with('/') ? folder : folder + "/";
        for (const std::string& name : names) {
            const std::string path = prefix + name;
            // Beside its messages a Maildir holds a server's notes and, as hidden folders, its subfolders; in
            // "tmp" lie messages that were not delivered.
            const bool isPassedOver =
                isMaildir ? name == "tmp" || fs::is_regular_file(path, error) : name.starts_with('.');
            if (isPassedOver) continue;
            const bool isCompanion = name == "popstate.dat" || name == "Info.plist" ||
                                     (name.ends_with(indexEnding) && isIndex(path) &&
                                      has(name.substr(0, name.size() - indexEnding.size())));
            m_passedOver += isCompanion ? 1 : 0;
            if (!isCompanion) m_pending.push_back(path);
        }
        return 0;
    }

    const std::string m_root, m_name;
    bool m_hasBegun = false;
    std::vector<std::string> m_pending = {};
    std::set<std::pair<dev_t, ino_t>> m_seen = {};
    std::int64_t m_passedOver = 0;
};

class FilesOfPath : public MailFiles {
public:
    FilesOfPath(std::string path, std::string name) : m_walk(std::move(path), std::move(name)) {}

    std::optional<File> next() override {
        while (auto each = m_walk.next()) {
            File file{std::move(each->path), std::move(each->name)};
            file.isOnly = !std::exchange(m_hasBegun, true);
            file.opened = each->refusal ? std::move(*each->refusal) : openForReading(file.path);
            const int* const descriptor = std::get_if<int>(&file.opened);
            struct stat status = {};
            if (!descriptor || fstat(*descriptor, &status) != 0 || !S_ISDIR(status.st_mode)) return file;
            close(*descriptor);
            if (auto refusal = m_walk.enter(file.path, status)) {
                file.opened = std::move(*refusal);
                return file;
            }
        }
        return std::nullopt;
    }
    std::int64_t passedOver() const override { return m_walk.passedOver(); }

private:
    FileWalk m_walk;
    bool m_hasBegun = false;
};

}  // namespace

std::unique_ptr<MailFiles> mailFiles(std::string path, std::optional<std::string> name) {
    std::string shown = name ? std::move(*name) : lastComponent(path);
    return std::make_unique<FilesOfPath>(std::move(path), std::move(shown));
}

namespace {

/// Adds " › Mail › Inbox": what could be taken for that in a name itself is not shown so.
void addFolders(std::string& text, std::string_view name) {
    constexpr std::string_view mark = "›";
    while (!name.empty()) {
        std::string folder(takePiece(name, '/'));
        if (folder.empty()) continue;
        for (auto at = folder.find(mark); at != std::string::npos; at = folder.find(mark, at))
            folder.replace(at, mark.size(), ">");
        text += (text.empty() ? "" : " › ") + folder;
    }
}

std::optional<std::string> withNumbers(const MessagePlace& place, const std::optional<std::string>& file) {
    std::string text = file.value_or("");
    for (const ArchivedFile& each : place.inside) addFolders(text, each.name);
    const auto add = [&](const std::string& more) { text += (text.empty() ? "" : ", ") + more; };
    if (place.number > 0) add("message " + std::to_string(place.number));
    std::string numbers;
    for (const std::size_t position : place.attached)
        numbers += (numbers.empty() ? "" : ".") + std::to_string(position);
    if (!place.attached.empty()) add("attached message " + numbers);
    if (text.empty() && !file) return std::nullopt;
    return text;
}

}  // namespace

std::optional<std::string> MessagePlace::name() const { return withNumbers(*this, file); }

std::optional<std::string> MessagePlace::pathName() const {
    return path.empty() ? std::nullopt : withNumbers(*this, repairedUTF8(path));
}

const MessagePlace& placeOf(const Found& found) {
    return std::visit([](const auto& each) -> const MessagePlace& { return each.place; }, found);
}

struct MailboxReader::State {
    explicit State(Quoting of) : quoting(of) {}

    const Quoting quoting;
    std::unique_ptr<MailFiles> files = {};
    MessagePlace first = {};              // what was to be read
    bool isAnyFound = false;              // of its messages
    std::optional<FileBytes> given = {};  // an open descriptor, until it is read
    std::uint64_t bytesRead = 0;
    std::int64_t passedOver = 0;  // of messages

    /// An archive or a compressed file that is being unpacked.
    struct Packed {
        Packed(PackedForm form, FileBytes file, ByteBuffer read, State& state)
            : bytes(std::move(file)),
              head(std::move(read)),
              isArchive(Unpacker::isArchive(form)),
              unpacker(form, [this, &state] { return more(state); }, state.unpackedSize) {}

        std::variant<std::string_view, Refusal> more(State& state);

        FileBytes bytes;
        ByteBuffer head;  // what was read of it
        const bool isArchive;
        bool hasBegun = false, isAnyFound = false;
        Unpacker unpacker;
    };

    // The file that is read
    MessagePlace place = {};
    std::vector<std::unique_ptr<Packed>> packed = {};  // in which it lies, in each other
    UnpackedSize unpackedSize = {};
    std::optional<FileBytes> file = {};
    std::optional<MailboxSplitter> mailbox = {};
    std::stop_token stopped = {};  // of the call that is under way

    bool openNext(std::optional<Found>& problem);
    std::optional<Found> openNextPacked(const std::stop_token& stop);
    std::optional<Found> unpack(PackedForm form, ByteBuffer head);
    std::optional<Found> leavePacked();
    std::optional<bool> isPassedOver(std::string_view head) const;
    bool isPipe() const {
        const FileBytes* const outermost =
            packed.empty() ? (file ? &*file : nullptr) : &packed.front()->bytes;
        return outermost && !outermost->isRegular();
    }
    void noteFound(const std::optional<Found>& found, std::int64_t passedOverBefore);
    std::optional<Found> nextIn(const std::stop_token& stop);
    std::optional<Found> nextOfOutlook(ByteBuffer bytes, const std::stop_token& stop);
    std::optional<Found> nextInMailbox(const std::stop_token& stop);
    Found problem(Refusal refusal) const { return FoundProblem{std::move(refusal), place}; }
};

std::variant<std::string_view, Refusal> MailboxReader::State::Packed::more(State& state) {
    if (std::exchange(hasBegun, true)) {
        head.setSize(0);
        if (auto refusal = bytes.readOn(head, packedPieceSize, state.bytesRead, state.stopped))
            return *refusal;
    }
    if (this == state.packed.front().get()) state.unpackedSize.read += head.size();
    return head.view();
}

/// Begins to unpack the file that was opened, or says why that can't be.
std::optional<Found> MailboxReader::State::unpack(PackedForm form, ByteBuffer head) {
    if (!Unpacker::canUnpack(form)) return problem({Refusal::Packed{form}});
    // A tar that is compressed, as most are, counts once.
    std::size_t depth = 1;
    for (const auto& each : packed) depth += each->isArchive || form != PackedForm::tar ? 1u : 0u;
    if (depth > deepestArchive) return problem({Refusal::Archive{ArchiveFault::tooDeep}});
    if (packed.empty()) unpackedSize = {};
    if (Unpacker::isArchive(form)) place.inside.emplace_back();
    packed.push_back(std::make_unique<Packed>(form, std::move(*file), std::move(head), *this));
    return std::nullopt;
}

/// Goes on to the next file in what is unpacked, when there is one.
std::optional<Found> MailboxReader::State::openNextPacked(const std::stop_token& stop) {
    Packed& from = *packed.back();
    place.number = 0;
    // What was not read of the file before is read now, so that a stop need not wait for its end.
    for (ByteBuffer piece(pieceSize); !from.unpacker.isAtEnd(); piece.setSize(0)) {
        if (stop.stop_requested()) return std::nullopt;
        if (auto refusal = from.unpacker.readOn(piece, pieceSize)) return problem(std::move(*refusal));
    }
    auto next = from.unpacker.next();
    if (!next) return leavePacked();
    if (from.isArchive) place.inside.back() = {std::move(next->name), next->number};
    if (next->refusal) return problem(std::move(*next->refusal));
    if (from.isArchive && place.inside.back().name.find(olmFolder) != std::string::npos) {
        from.isAnyFound = true;
        leavePacked();
        return problem({Refusal::Packed{PackedForm::olm}});
    }
    file.emplace(from.unpacker);
    return std::nullopt;
}

/// Goes back to what the archive lies in. When nothing was in it, that is a problem, but in another archive,
/// where it is one of many files.
std::optional<Found> MailboxReader::State::leavePacked() {
    const bool isArchive = packed.back()->isArchive, hasHeld = packed.back()->isAnyFound;
    if (isArchive) place.inside.pop_back();
    packed.pop_back();
    if (hasHeld && !packed.empty()) packed.back()->isAnyFound = true;
    if (hasHeld || !place.inside.empty()) return std::nullopt;
    return problem(isArchive ? Refusal{Refusal::EmptyFolder{}} : Refusal{Refusal::NotAnEmail{}});
}

/// Tells what is unpacked that something came of it, and ends what can't or must not be unpacked further.
void MailboxReader::State::noteFound(const std::optional<Found>& found, std::int64_t passedOverBefore) {
    if (packed.empty()) return;
    const bool isAnyPassedOver = !packed.back()->isArchive && passedOver != passedOverBefore;
    packed.back()->isAnyFound |= found || isAnyPassedOver;
    const auto* problem = found ? std::get_if<FoundProblem>(&*found) : nullptr;
    if (!problem) return;
    // What is compressed is one file, of which nothing more is wanted then.
    if (!packed.back()->isArchive && problem->place.number == 0) leavePacked();
    if (problem->refusal == Refusal{Refusal::Archive{ArchiveFault::tooLarge}}) packed.clear();
}

/// Whether a file in an archive that begins so is no message: who packs mail packs other things as well.
/// Nothing when more must be read to tell.
std::optional<bool> MailboxReader::State::isPassedOver(std::string_view head) const {
    if (place.inside.empty()) return false;
    const auto message = MailMessage::parse(head);
    const bool isMessage =
        message.first("From") || message.first("DKIM-Signature") || message.first("Received");
    if (!isMessage && !message.body() && !file->hasEnded()) return std::nullopt;
    return !isMessage;
}

/// Goes on to the next file. False when there is none.
bool MailboxReader::State::openNext(std::optional<Found>& problem) {
    if (given) {
        file.emplace(std::move(*given));
        given.reset();
        return true;
    }
    if (auto next = files ? files->next() : std::nullopt) {
        place = {.path = std::move(next->path), .file = std::move(next->name)};
        if (const int* descriptor = std::get_if<int>(&next->opened)) {
            file.emplace(*descriptor, FileBytes::Ownership::ours);
        } else {
            problem = FoundProblem{std::get<Refusal>(std::move(next->opened)), place};
        }
        return true;
    }
    if (!files || std::exchange(isAnyFound, true)) return false;
    problem = FoundProblem{{Refusal::EmptyFolder{}}, first};
    return true;
}

/// The first message of the file that was opened; nothing when all that is there was passed over.
std::optional<Found> MailboxReader::State::nextIn(const std::stop_token& stop) {
    const bool isRegular = file->isRegular();
    const std::size_t size = isRegular ? static_cast<std::size_t>(file->status().st_size) : longestHead;
    ByteBuffer bytes(std::min(size + 1, longestHead));
    if (auto refusal = file->readOn(bytes, longestHead, bytesRead, stop)) return problem(std::move(*refusal));
    if (const auto form = packedForm(bytes.view())) return unpack(*form, std::move(bytes));
    if (beginsCompoundFile(bytes.view())) return nextOfOutlook(std::move(bytes), stop);
    const auto order = utf16Order(bytes.view());
    if (order) {
        file->decodeAs(*order, bytes);
        if (auto refusal = file->readOn(bytes, longestHead, bytesRead, stop))
            return problem(std::move(*refusal));
    }
    file->endLinesWithLF(bytes);
    if (const auto begin = mailboxBegin(bytes.view())) {
        const std::int64_t before = passedOver;
        mailbox.emplace(begin->form);
        mailbox->add(bytes.view().substr(begin->offset));
        auto found = nextInMailbox(stop);
        const bool isNothing = !found && file->hasEnded() && (passedOver == before || !files);
        return isNothing ? problem({Refusal::NotAnEmail{}}) : std::move(found);
    }
    const bool isInPieces = beginsWithCount(bytes.view()) || beginsStore(bytes.view());
    if (!isInPieces && isPassedOver(bytes.view()).value_or(false)) {
        ++passedOver;
        return std::nullopt;
    }
    const std::size_t limit =
        largestMessage + (beginsWithCount(bytes.view()) ? mostProperties : std::size_t{0}) + 1;
    if (isRegular && size >= limit && !order) return problem({Refusal::TooLarge{}});
    if (isRegular) bytes.grow(std::min(size + 1, limit));
    if (auto refusal = file->readOn(bytes, limit, bytesRead, stop)) return problem(std::move(*refusal));
    if (const auto message = countedMessage(bytes.view())) bytes = ByteBuffer(*message);
    if (beginsStore(bytes.view())) {
        const auto message = storedMessage(bytes.view());
        if (!message) return problem({Refusal::Packed{PackedForm::dbox}});
        bytes = ByteBuffer(*message);
    }
    if (isPassedOver(bytes.view()).value_or(true)) {
        ++passedOver;
        return std::nullopt;
    }
    if (bytes.size() > largestMessage) return problem({Refusal::TooLarge{}});
    return FoundMessage{std::move(bytes), place};
}

/// The message of a file of Outlook's; other programs have such files, too, which in an archive are passed
/// over.
std::optional<Found> MailboxReader::State::nextOfOutlook(ByteBuffer bytes, const std::stop_token& stop) {
    const std::size_t limit = largestMessage + 1;
    if (auto refusal = file->readOn(bytes, limit, bytesRead, stop)) return problem(std::move(*refusal));
    if (bytes.size() == limit) return problem({Refusal::TooLarge{}});
    auto message = outlookMessage(bytes.view());
    if (!message && place.inside.empty()) return problem({Refusal::Converted{}});
    if (!message) {
        ++passedOver;
        return std::nullopt;
    }
    FoundMessage found{.bytes = std::move(message->bytes), .place = place};
    found.facts.outlooksBody = message->hasBody;
    found.apart = std::make_shared<const OutlookMessage>(std::move(*message));
    return found;
}

/// The next message of the mailbox that is read; nothing at its end, or at a stop.
std::optional<Found> MailboxReader::State::nextInMailbox(const std::stop_token& stop) {
    for (;;) {
        if (file->hasEnded()) mailbox->end();
        if (const auto message = mailbox->next()) {
            if (message->number == 1 && isInternalData(message->bytes)) {
                ++passedOver;
                continue;
            }
            place.number = message->isOnly ? 0 : message->number;
            if (message->isTooLarge) return problem({Refusal::TooLarge{}});
            FoundMessage found{.place = place};
            auto unquoted = quoting == Quoting::undone ? withoutFromQuoting(message->bytes) : std::nullopt;
            if (unquoted) found.facts.fromLines = unquoted->fromLines;
            found.bytes =
                unquoted && unquoted->bytes ? std::move(*unquoted->bytes) : ByteBuffer(message->bytes);
            return found;
        }
        if (file->hasEnded() || stop.stop_requested()) return std::nullopt;
        ByteBuffer piece(pieceSize);
        if (auto refusal = file->readOn(piece, pieceSize, bytesRead, stop)) {
            place.number = 0;
            return problem(std::move(*refusal));
        }
        mailbox->add(piece.view());
    }
}

MailboxReader::MailboxReader(std::string path, std::optional<std::string> name, Quoting quoting)
    : m_state(std::make_unique<State>(quoting)) {
    m_state->first = {.path = path, .file = name ? std::move(*name) : lastComponent(path)};
    m_state->files = mailFiles(std::move(path), m_state->first.file);
}

MailboxReader::MailboxReader(std::unique_ptr<MailFiles> files, Quoting quoting)
    : m_state(std::make_unique<State>(quoting)) {
    m_state->files = std::move(files);
}

MailboxReader::MailboxReader(int descriptor, Quoting quoting) : m_state(std::make_unique<State>(quoting)) {
    m_state->given.emplace(descriptor, FileBytes::Ownership::callers);
}

MailboxReader::~MailboxReader() = default;

std::optional<Found> MailboxReader::next(const std::stop_token& stop) {
    State& state = *m_state;
    state.stopped = stop;
    while (!stop.stop_requested()) {
        std::optional<Found> found;
        const std::int64_t before = state.passedOver;
        if (state.mailbox) {
            found = state.nextInMailbox(stop);
        } else if (!state.packed.empty()) {
            found = state.openNextPacked(stop);
            if (!found && state.file) found = state.nextIn(stop);
        } else if (!state.openNext(found)) {
            return std::nullopt;
        } else if (!found) {
            found = state.nextIn(stop);
        }
        state.noteFound(found, before);
        const bool isStopped = stop.stop_requested(), mayBeCut = state.isPipe();
        if (isStopped && state.mailbox && !found) return std::nullopt;  // it can be read on
        const bool isMailbox = state.mailbox && found &&
                               (std::holds_alternative<FoundMessage>(*found) || state.place.number > 0);
        if (!isMailbox) {
            state.mailbox.reset();
            state.file.reset();
        }
        state.isAnyFound |= found.has_value();
        if (found && !(isStopped && mayBeCut)) return found;
    }
    return std::nullopt;
}

std::uint64_t MailboxReader::bytesRead() const { return m_state->bytesRead; }

std::int64_t MailboxReader::passedOver() const {
    return m_state->passedOver + (m_state->files ? m_state->files->passedOver() : 0);
}

std::optional<std::uint64_t> MailboxReader::expectedBytes(const std::string& path) {
    FileWalk walk(path, "");
    std::uint64_t bytes = 0;
    while (const auto file = walk.next()) {
        struct stat status = {};
        if (stat(file->path.c_str(), &status) != 0) continue;
        if (S_ISDIR(status.st_mode)) {
            walk.enter(file->path, status);
            continue;
        }
        if (!S_ISREG(status.st_mode)) return std::nullopt;
        bytes += static_cast<std::uint64_t>(status.st_size);
    }
    return bytes;
}

bool isMessageAlone(std::string_view file) {
    const std::string_view head = file.substr(0, longestHead);
    if (packedForm(head) || beginsCompoundFile(head) || utf16Order(head) || beginsWithCount(head) ||
        beginsStore(head) || hasCRs(head))
        return false;
    const auto begin = mailboxBegin(head);
    if (!begin) return true;
    MailboxSplitter splitter(begin->form);
    splitter.add(file.substr(begin->offset));
    splitter.end();
    const auto first = splitter.next();
    return begin->form == MailboxForm::mbox && first && first->isOnly && !first->isTooLarge &&
           first->bytes.find_first_of(" \t\r\n") != 0 && !isInternalData(first->bytes) &&
           !withoutFromQuoting(first->bytes);
}

FoundMessage attachedApart(const OutlookMessage::Attached& attached, MessagePlace place) {
    place.attached = attached.position;
    FoundMessage found{.bytes = ByteBuffer(attached.bytes.view()), .place = std::move(place)};
    if (attached.isOutlooks) found.facts.outlooksBody = attached.hasBody;
    return found;
}

std::variant<FoundMessage, Refusal> attachedAt(std::vector<std::size_t> position, FoundMessage outer) {
    if (outer.apart) {
        for (const auto& each : outer.apart->attached) {
            if (each.position == position) return attachedApart(each, std::move(outer.place));
        }
    }
    auto message = messageIn(std::move(outer.bytes), ParseMode::strict);
    if (auto* refusal = std::get_if<Refusal>(&message)) return std::move(*refusal);
    AttachedMessages attached(std::get<MailMessage>(std::move(message)));
    while (auto next = attached.next()) {
        if (next->position != position) continue;
        outer.place.attached = std::move(position);
        return FoundMessage{std::move(next->bytes), std::move(outer.place)};
    }
    return Refusal{Refusal::Moved{}};
}

std::variant<FoundMessage, Refusal> readAgain(const MessagePlace& place, const std::stop_token& stop) {
    MailboxReader reader(place.path);
    return readAgain(place, reader, stop);
}

std::variant<FoundMessage, Refusal> readAgain(const MessagePlace& place, MailboxReader& reader,
                                              const std::stop_token& stop) {
    while (auto found = reader.next(stop)) {
        if (auto* problem = std::get_if<FoundProblem>(&*found)) {
            const auto& inside = problem->place.inside;  // of the archive, or of what it lies in
            const bool isThere = std::ranges::equal(
                inside, std::span(place.inside).first(std::min(inside.size(), place.inside.size())));
            const bool isSame = problem->place.number == place.number || problem->place.number == 0;
            if (isThere && isSame) return std::move(problem->refusal);
            continue;
        }
        auto& message = std::get<FoundMessage>(*found);
        if (message.place.inside != place.inside) continue;
        // One that was alone in its file is the first, should others have come.
        if (message.place.number != place.number && (place.number != 0 || message.place.number != 1))
            continue;
        message.place = place;
        if (!place.attached.empty()) return attachedAt(place.attached, std::move(message));
        // cppcheck-suppress returnStdMoveLocal; it lies in what was taken
        return std::move(message);
    }
    return Refusal{Refusal::Moved{}};
}

}  // namespace quillmark
