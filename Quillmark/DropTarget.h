#pragma once

#include <QByteArray>
#include <string>
#include <variant>
#include <vector>

class QMimeData;

namespace quillmark {

/// What a drag or the clipboard holds for us.
struct DropContents {
    /// Nothing that could be a message.
    struct Nothing {
        bool operator==(const Nothing&) const = default;
    };
    /// Files, in the drag's order; of a folder all the files in it and below it, by path.
    struct Files {
        std::vector<std::string> paths = {};
        bool wasCut = false;  ///< a folder held more than `mostFilesOfFolders`
        bool operator==(const Files&) const = default;
    };
    /// One message, as the mail program has it.
    struct Data {
        QByteArray bytes = {};  ///< shared with the drag: fifty megabytes take time to copy
        bool operator==(const Data&) const = default;
    };
    /// Text that is more than a link: the source of a message, its headers, or something else.
    struct Text {
        std::string text = {};
        bool operator==(const Text&) const = default;
    };
    /// Only the place of a message inside a mail program or on the web, where we do not reach.
    struct LinkOnly {
        bool operator==(const LinkOnly&) const = default;
    };
    std::variant<Nothing, Files, Data, Text, LinkOnly> value = Nothing{};
    bool operator==(const DropContents&) const = default;
};

/// How many files are taken out of all the folders of one drop.
constexpr std::size_t mostFilesOfFolders = 100'000;

/// Reads what was dropped or copied: files first, then a message's own data, then text. Names of files are
/// collected, the files are not opened.
DropContents dropContents(const QMimeData& data);

/// Whether a drag is worth lighting up for. Looks at the kinds of data alone: what is behind them is fetched
/// at the drop.
bool mayHoldMessage(const QMimeData& data);

}  // namespace quillmark
