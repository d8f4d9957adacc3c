#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "QuillmarkKit/Intake/Intake.h"
#include "QuillmarkKit/Support/ByteBuffer.h"

namespace quillmark {

/// How much was read of a file and how much came out of it, of all that is packed in it together. A small
/// file that would fill a disk is met by this.
struct UnpackedSize {
    static constexpr std::uint64_t atAnyRate = 200'000'000;  ///< bytes that may come out of any file
    static constexpr std::uint64_t mostOfOne = 250;          ///< bytes more for each that was read
    static constexpr std::uint64_t most = 200'000'000'000;   ///< bytes out of one file

    std::uint64_t read = 0, unpacked = 0;
    bool isTooMuch() const { return unpacked > most || unpacked > atAnyRate + mostOfOne * read; }
};

/// Unpacks an archive or a compressed file while its bytes come in: gives the files in it, one after the
/// other. Nothing is written to disk, no other program is run, and only what the form needs is read: a name
/// in an archive is a text and leads nowhere. Not safe from several threads at once.
class Unpacker {
public:
    /// The bytes that come next, valid until the next call; none at the end.
    using Input = std::function<std::variant<std::string_view, Refusal>()>;

    /// Whether files of this form can be unpacked here: what does it may not be installed.
    static bool canUnpack(PackedForm form);
    /// Whether this form is that of an archive; a compressed file holds one file, without a name.
    static bool isArchive(PackedForm form);

    /// `size` is added to, and heeded; it must live as long.
    Unpacker(PackedForm form, Input input, UnpackedSize& size);
    ~Unpacker();
    Unpacker(const Unpacker&) = delete;
    Unpacker& operator=(const Unpacker&) = delete;

    struct File {
        std::string name = {};                ///< as the archive has it, as UTF-8 without line ends
        std::size_t number = 0;               ///< its place in the archive, from 1
        std::optional<Refusal> refusal = {};  ///< why it can't be read: then it is at its end
    };
    /// The next file, of which what was not read is lost; nothing at the end. What is no file is passed over.
    std::optional<File> next();
    /// Appends what comes next of the file until there are `limit` bytes, or until its end; why it failed, or
    /// nothing. Behind a failure it is at its end.
    std::optional<Refusal> readOn(ByteBuffer& bytes, std::size_t limit);
    /// Whether nothing more comes of the file, as far as is known.
    bool isAtEnd() const;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

}  // namespace quillmark
