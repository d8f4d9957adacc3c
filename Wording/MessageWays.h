#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Wording/Reader.h"

/// How a person gets a message, as it was sent, out of the program that they read their mail with.
namespace quillmark {

/// What is to be done in the end, which a picture may show.
enum class WayOut {
    save,      ///< the message as a file, and drop that
    copy,      ///< its source, and paste it
    elsewhere  ///< not in this program
};

/// Where a mail program runs.
enum class MailPlace { computer, browser, phone, other };

struct MessageWay {
    std::string program = {};
    MailPlace place = MailPlace::computer;
    WayOut out = WayOut::save;
    std::vector<std::string> steps = {};  ///< sentences, in their order
    std::string remark = {};              ///< what is good to know besides; perhaps empty
    std::string_view otherNames = {};     ///< by which people look for it; not shown
};

/// All of them, by place, those first that more people use.
std::vector<MessageWay> messageWays(const Reader& reader);
/// "On this computer", "In the browser", "On the phone", "Otherwise".
std::string nameOf(MailPlace place, const Reader& reader);

/// Whether what somebody types is about this way: each of its words stands in the program's name, in one of
/// its other names or in its steps, in any case. Empty text is about all.
bool isAbout(const MessageWay& way, std::string_view typed);

}  // namespace quillmark
