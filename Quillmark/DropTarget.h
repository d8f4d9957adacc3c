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
    /// Files and folders, in the drag's order.
    struct Files {
        std::vector<std::string> paths = {};
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

/// Reads what was dropped or copied: files first, then a message's own data, then text. Files are
/// named, not opened.
DropContents dropContents(const QMimeData& data);

/// Whether a drag is worth lighting up for. Looks at the kinds of data alone: what is behind them is fetched
/// at the drop.
bool mayHoldMessage(const QMimeData& data);

/// Whether this is beyond doubt a message, or its source, of at most 5 MB: one with a sender and a line that
/// mail programs add. Other text may well begin with what could be a header line.
bool holdsMessage(const DropContents& contents);

}  // namespace quillmark
