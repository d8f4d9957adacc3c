#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QuillmarkKit/Support/ByteBuffer.h"

namespace quillmark {

/// What a file of Outlook's (.msg) keeps of a message as it was received: a compound file ([MS-CFB]) with the
/// message's properties in streams ([MS-OXMSG]). Of its text only what was made of it is there, so that as a
/// rule there are header lines alone.
struct OutlookMessage {
    /// The lines of the header as they were received (PidTagTransportMessageHeaders), as UTF-8; and behind
    /// them the body, when the file keeps the whole of it, as it does of signed mail (S/MIME).
    ByteBuffer bytes = {};
    bool hasBody = false;

    /// A message that is attached to it.
    struct Attached {
        ByteBuffer bytes = {};
        bool isOutlooks = false;                 ///< kept in such pieces, too; else as it was
        bool hasBody = false;                    ///< of one that is
        std::vector<std::size_t> position = {};  ///< as of `AttachedMessages::Attached`
    };
    /// Each before those inside it; as many and as deep as of `AttachedMessages`.
    std::vector<Attached> attached = {};
    bool isAnyLeftOut = false;
};

/// Whether a file that begins so is a compound file: of Outlook's, or of another program's.
bool beginsCompoundFile(std::string_view head);

/// Nothing when the file is none of Outlook's, is damaged, or holds no header lines: a message that was never
/// received has none. Linear in the file, of whose streams no more is read than it has bytes.
std::optional<OutlookMessage> outlookMessage(std::string_view file);

}  // namespace quillmark
