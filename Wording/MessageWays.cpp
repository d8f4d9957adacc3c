#include "Wording/MessageWays.h"

#include "QuillmarkKit/Support/Text.h"
#include "QuillmarkKit/Support/Unicode.h"

namespace quillmark {

std::string nameOf(MailPlace place, const Reader& reader) {
    switch (place) {
        case MailPlace::computer:
            return reader.translate("On this computer");
        case MailPlace::browser:
            return reader.translate("In the browser");
        case MailPlace::phone:
            return reader.translate("On the phone");
        case MailPlace::other:
            break;
    }
    return reader.translate("Otherwise");
}

// The names of menus and commands are those that the programs show in the reader's language.
std::vector<MessageWay> messageWays(const Reader& reader) {
    const std::string drop =
                          reader.translate("Drop the file onto Quillmark’s window, or open it with Ctrl+O."),
                      paste = reader.translate("Choose Paste… in Quillmark, and paste it there."),
                      open = reader.translate("Open the message."),
                      copyAll = reader.translate("Select all of it (Ctrl+A) and copy it (Ctrl+C).");
    const std::string choose = reader.translate("Choose the message in the list.");
    return {
        {"Thunderbird",
         MailPlace::computer,
         WayOut::save,
         {choose, reader.translate("Choose File > Save As > File (Ctrl+S), and save it as an .eml file."),
          drop},
         reader.translate(
             "Quillmark’s add-on for Thunderbird puts a button beside the message, which needs no "
             "file. Ctrl+U shows a message’s source."),
         "mozilla betterbird icedove"},
        {"Evolution",
         MailPlace::computer,
         WayOut::save,
         {choose, reader.translate("Choose File > Save as mbox… (Ctrl+S)."), drop},
         reader.translate(
             "Several chosen messages go into one file, and all of them are checked. Evolution "
             "writes the header lines anew: where a signature is broken, that can be Evolution’s "
             "doing."),
         "gnome"},
        {"KMail",
         MailPlace::computer,
         WayOut::save,
         {choose, reader.translate("Choose File > Save As… (Ctrl+S)."), drop},
         reader.translate("The key V shows a message’s source."),
         "kde kontact"},
        {"Claws Mail",
         MailPlace::computer,
         WayOut::save,
         {choose, reader.translate("Choose File > Save email as… (Ctrl+S)."), drop},
         reader.translate("Ctrl+U shows a message’s source. An action “quillmark-desktop %f” opens a message "
                          "here at once."),
         "sylpheed"},
        {"Geary",
         MailPlace::computer,
         WayOut::copy,
         {open, reader.translate("Choose View Source in the message’s menu (⋮). It opens in a text editor."),
          copyAll, paste},
         {},
         "gnome pantheon"},
        {"mutt, NeoMutt",
         MailPlace::computer,
         WayOut::save,
         {choose,
          reader.translate("Press C, type the name of a new file, and press Enter: the message is copied "
                           "there."),
          drop},
         reader.translate("In a terminal, “quillmark check -” reads a message that is piped to it."),
         "terminal"},
        {reader.translate("Outlook, the classic program"),
         MailPlace::computer,
         WayOut::save,
         {open, reader.translate("Choose File > Save As, and as the type “Outlook Message Format” (.msg)."),
          drop},
         reader.translate("Such a file keeps the header lines, but not the text as it was signed. Outlook on "
                          "the web and the new Outlook save .eml files, which can be checked whole."),
         "microsoft exchange msg office windows"},
        {reader.translate("Outlook, new and on the web"),
         MailPlace::browser,
         WayOut::save,
         {open, reader.translate("Choose Save as, or Download, in the message’s menu (⋯)."), drop},
         {},
         "microsoft exchange hotmail live msn office 365 outlook.com"},
        {"Apple Mail",
         MailPlace::computer,
         WayOut::save,
         {choose, reader.translate("Choose File > Save As…, and as the format “Raw Message Source”."), drop},
         {},
         "macos mac icloud mail.app"},
        {"Gmail",
         MailPlace::browser,
         WayOut::save,
         {open, reader.translate("Choose Download message in the message’s menu (⋮)."), drop},
         reader.translate("Show original, in the same menu, shows its source, which can be copied."),
         "google googlemail workspace"},
        {"Yahoo Mail",
         MailPlace::browser,
         WayOut::copy,
         {open, reader.translate("Choose View raw message in the message’s menu (⋯)."), copyAll, paste},
         {},
         "aol"},
        {"GMX, web.de",
         MailPlace::browser,
         WayOut::save,
         {open, reader.translate("Open the message’s menu (More), and save or download the message there."),
          drop},
         {},
         "mail.com webde 1&1"},
        {"Proton Mail",
         MailPlace::browser,
         WayOut::save,
         {open, reader.translate("Choose Export in the message’s menu (More)."), drop},
         {},
         "protonmail"},
        {"Fastmail",
         MailPlace::browser,
         WayOut::copy,
         {open, reader.translate("Choose Show raw message in the message’s menu (⋯)."), copyAll, paste},
         {},
         "messagingengine"},
        {"Roundcube",
         MailPlace::browser,
         WayOut::save,
         {open, reader.translate("Choose More > Download, and then the source (.eml)."), drop},
         reader.translate(
             "Many providers, universities and companies use it for reading mail in the browser."),
         "webmail"},
        {reader.translate("Mail on an iPhone or iPad"),
         MailPlace::phone,
         WayOut::elsewhere,
         {reader.translate("Open the same mailbox on a computer, in a mail program or in the browser."),
          reader.translate("Get the message from there, as that program’s steps say.")},
         reader.translate("Mail on a phone doesn’t show a message as it was sent. Don’t forward it to "
                          "yourself: that makes a new message."),
         "ios apple ipad iphone"},
        {reader.translate("Apps on Android"),
         MailPlace::phone,
         WayOut::elsewhere,
         {reader.translate("Open the same mailbox on a computer, in a mail program or in the browser."),
          reader.translate("Get the message from there, as that program’s steps say.")},
         reader.translate("Most apps on a phone don’t hand a message out as it was sent. Don’t forward it to "
                          "yourself: that makes a new message."),
         "gmail samsung k-9 outlook"},
        {reader.translate("Somebody else has the message"),
         MailPlace::other,
         WayOut::save,
         {reader.translate("Ask them to send you the message as a saved file, or to forward it “as an "
                           "attachment”."),
          reader.translate("Save what they sent."), drop},
         reader.translate(
             "A message that was forwarded in the ordinary way is a new one: nothing in it proves "
             "who sent the first."),
         "forwarded attachment weitergeleitet anhang"},
        {reader.translate("Another mail program"),
         MailPlace::other,
         WayOut::save,
         {reader.translate("Look for “Save As”, “Export” or “Download”, in the menus or beside the message, "
                           "and choose .eml where there is a choice."),
          drop},
         reader.translate("Or look for “View Source”, “Show Original” or “Raw message”, copy all of it, and "
                          "paste it. A message that can be dragged may be dragged onto the window."),
         "webmail horde sogo zimbra tutanota tuta mailspring spark the bat"},
    };
}

bool isAbout(const MessageWay& way, std::string_view typed) {
    std::string all = way.program + " " + std::string(way.otherNames) + " " + way.remark;
    for (const std::string& step : way.steps) all += " " + step;
    all = unicodeLowered(all);
    const std::string wanted = unicodeLowered(typed);
    for (std::string_view rest = wanted; !rest.empty();) {
        const std::string_view word = takePiece(rest, ' ');
        if (all.find(word) == std::string::npos) return false;
    }
    return true;
}

}  // namespace quillmark
