#include "QuillmarkKit/Checks/Reversals.h"

#include <algorithm>
#include <utility>

#include "QuillmarkKit/Mail/MIMEStructure.h"
#include "QuillmarkKit/Support/Text.h"

namespace quillmark {

namespace {

constexpr std::string_view lineEnd = "\r\n";

/// The body with each line (its end included) made another; nothing when none differs.
template <typename Change>
std::vector<Reading> eachLine(const Reading& reading, RewrittenForm form, Change change) {
    std::string body;
    bool isChanged = false;
    for (std::string_view rest = reading.body; !rest.empty();) {
        const std::string_view line = rest.substr(0, std::min(rest.find('\n'), rest.size() - 1) + 1);
        rest.remove_prefix(line.size());
        isChanged |= change(body, line);
    }
    if (!isChanged) return {};
    Reading made = reading.with(std::move(body), 0);
    made.forms.insert(form);
    return {std::move(made)};
}

/// Mailboxes put ">" before lines that begin with "From ".
std::vector<Reading> withoutFromQuoting(const Reading& reading, const MailMessage&) {
    return eachLine(reading, RewrittenForm::fromQuoting, [](std::string& body, std::string_view line) {
        const auto marks = line.find_first_not_of('>');
        const bool isQuoted =
            marks != std::string_view::npos && marks > 0 && line.substr(marks).starts_with("From ");
        body += line.substr(isQuoted ? 1 : 0);
        return isQuoted;
    });
}

/// A full stop at the beginning of a line is doubled while a message travels (RFC 5321, section 4.5.2).
std::vector<Reading> withoutDoubledDots(const Reading& reading, const MailMessage&) {
    return eachLine(reading, RewrittenForm::dots, [](std::string& body, std::string_view line) {
        const bool isDoubled = line.starts_with("..");
        body += line.substr(isDoubled ? 1 : 0);
        return isDoubled;
    });
}

/// The same, taken back once too often.
std::vector<Reading> withDoubledDots(const Reading& reading, const MailMessage&) {
    return eachLine(reading, RewrittenForm::dots, [](std::string& body, std::string_view line) {
        const bool isDot = line.starts_with('.');
        if (isDot) body += '.';
        body += line;
        return isDot;
    });
}

std::vector<Reading> withOtherFirstLine(const Reading& reading, const MailMessage&) {
    std::string_view body = reading.body;
    while (body.starts_with(lineEnd)) body.remove_prefix(lineEnd.size());
    std::vector<Reading> made;
    if (body.size() < reading.body.size()) made.push_back(reading.with(std::string(body), 0));
    if (reading.body.size() - body.size() > lineEnd.size())
        made.push_back(reading.with(std::string(reading.body.substr(lineEnd.size())), 1));
    made.push_back(reading.with(std::string(lineEnd) + std::string(reading.body), 1));
    for (Reading& each : made) each.forms.insert(RewrittenForm::blankLines);
    return made;
}

/// Each second line is empty: CR CR LF was taken for two line ends.
std::vector<Reading> withoutSecondLines(const Reading& reading, const MailMessage&) {
    std::string body;
    bool isSecond = false;
    for (std::string_view rest = reading.body; !rest.empty(); isSecond = !isSecond) {
        const std::string_view line = rest.substr(0, std::min(rest.find('\n'), rest.size() - 1) + 1);
        rest.remove_prefix(line.size());
        if (!isSecond) {
            body += line;
        } else if (line != lineEnd) {
            return {};
        }
    }
    if (body.size() == reading.body.size()) return {};
    Reading made = reading.with(std::move(body), 0);
    made.forms.insert(RewrittenForm::blankLines);
    return {std::move(made)};
}

/// All lines that hold anything begin alike: somebody indented or quoted the text.
std::vector<Reading> withoutIndentation(const Reading& reading, const MailMessage&) {
    std::string_view first = reading.body;
    while (first.starts_with(lineEnd)) first.remove_prefix(lineEnd.size());
    const auto length = std::min(first.find_first_not_of(" \t>|"), first.size());
    const std::string_view indent = first.substr(0, length);
    if (indent.empty() || indent.size() > 16) return {};
    const std::string_view bare = trimmed(indent, " \t");
    bool isAlike = true;
    auto made = eachLine(reading, RewrittenForm::indentation, [&](std::string& body, std::string_view line) {
        const bool isIndented = line.starts_with(indent);
        isAlike = isAlike && (isIndented || trimmed(line, " \t\r\n") == bare);
        body += isIndented ? line.substr(indent.size()) : lineEnd;
        return isIndented;
    });
    return isAlike ? std::move(made) : std::vector<Reading>();
}

/// Servers break lines that are longer than SMTP allows: at 998 bytes, or at 990 with "!" and a blank.
std::vector<Reading> withLongLines(const Reading& reading, const MailMessage&) {
    constexpr std::size_t shortest = 900;
    return eachLine(reading, RewrittenForm::lineBreaks,
                    [isOpen = false](std::string& body, std::string_view line) mutable {
                        const std::string_view text =
                            line.substr(0, line.size() - (line.ends_with(lineEnd) ? lineEnd.size() : 0));
                        const bool isMarked = text.size() >= shortest && text.ends_with('!');
                        if (isOpen && line.starts_with(' ')) line.remove_prefix(1);
                        const bool breaks = isMarked || text.size() == 998;
                        isOpen = breaks;
                        if (breaks) line = line.substr(0, line.size() - lineEnd.size() - (isMarked ? 1 : 0));
                        body += line;
                        return breaks;
                    });
}

/// Quotation marks, dashes and blanks that a program made typographic.
std::vector<Reading> inPlainTypography(const Reading& reading, const MailMessage&) {
    std::string body = withPlainTypography(reading.body);
    if (body == reading.body) return {};
    Reading made = reading.with(std::move(body), 0);
    made.forms.insert(RewrittenForm::typography);
    return {std::move(made)};
}

/// The signature delimiter lost the blank at its end.
std::vector<Reading> withDelimiterBlank(const Reading& reading, const MailMessage&) {
    return eachLine(reading, RewrittenForm::blanks, [](std::string& body, std::string_view line) {
        const bool isDelimiter = line == "--\r\n";
        body += isDelimiter ? std::string_view("-- \r\n") : line;
        return isDelimiter;
    });
}

std::vector<Reading> withoutEndBlanks(const Reading& reading, const MailMessage&) {
    return eachLine(reading, RewrittenForm::blanks, [](std::string& body, std::string_view line) {
        std::string_view text = line.substr(0, line.size() - (line.ends_with(lineEnd) ? lineEnd.size() : 0));
        const std::size_t size = text.size();
        while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
        body.append(text).append(line.substr(size));
        return text.size() < size;
    });
}

/// The fields of a part's header, with their folding.
std::vector<NamedFields> partFields(std::string_view header) {
    const MailMessage part = MailMessage::parse(std::string(header) + "\r\n");
    std::vector<NamedFields> fields;
    for (const HeaderField& field : part.headers()) {
        const std::string name = asciiLowered(field.name);
        auto known = std::ranges::find(fields, name, &NamedFields::name);
        if (known == fields.end()) known = fields.insert(known, {name, {}});
        known->fields.emplace_back(field.raw);
    }
    return fields;
}

/// A list or gateway puts the whole message into a part beside its own text; the fields that say what the
/// message is go there.
std::vector<Reading> unwrapped(const Reading& reading, const MailMessage& message) {
    constexpr std::size_t mostInner = 3, longestHeader = 20'000;
    std::vector<Reading> made;
    const MailMessage whole = messageOf(reading, message);
    const std::string_view body = whole.body().value_or("");
    for (const MIMEPart& part : mimeParts(whole, 3, 50)) {
        if (part.parent != 0 || made.size() == mostInner) continue;
        const std::string_view header = body.substr(part.headerBegin, part.bodyBegin - part.headerBegin);
        if (header.size() > longestHeader) continue;
        std::string content(body.substr(part.bodyBegin, part.bodyEnd - part.bodyBegin));
        content += lineEnd;
        Reading inner = reading.with(std::move(content), static_cast<int>(made.size()));
        inner.forms.insert(RewrittenForm::wrapped);
        const auto fields = partFields(header);
        for (const std::string_view name : {"content-type", "content-transfer-encoding", "mime-version"}) {
            const auto given = std::ranges::find(fields, name, &NamedFields::name);
            if (given == fields.end()) inner.hint({std::string(name), {{}}, name != "mime-version"});
        }
        for (const NamedFields& each : fields) inner.hint({each.name, {each.fields}, true});
        made.push_back(std::move(inner));
    }
    return made;
}

constexpr Reversal all[] = {
    {1, withoutFromQuoting}, {1, unwrapped},          {2, withoutSecondLines}, {2, withOtherFirstLine},
    {2, withLongLines},      {2, withoutDoubledDots}, {3, withDoubledDots},    {3, withoutIndentation},
    {3, withDelimiterBlank}, {4, withoutEndBlanks},   {4, inPlainTypography},
};

}  // namespace

Reading Reading::with(std::string made, int more) const {
    Reading next = *this;
    next.bytes = std::make_shared<const std::string>(std::move(made));
    next.body = *next.bytes;
    next.cost += more;
    ++next.steps;
    return next;
}

std::string_view Reading::field(const MailMessage& message, std::string_view name) const {
    const auto known = std::ranges::find(hints, name, &HeaderHint::name);
    if (known != hints.end() && !known->alternatives.empty()) {
        const auto& fields = known->alternatives.front();
        return fields.empty() ? std::string_view() : std::string_view(fields.front());
    }
    const HeaderField* given = message.first(name);
    return given ? given->raw : std::string_view();
}

void Reading::hint(HeaderHint hint) {
    const auto known = std::ranges::find(hints, hint.name, &HeaderHint::name);
    if (known == hints.end()) {
        hints.push_back(std::move(hint));
    } else {
        *known = std::move(hint);
    }
}

MailMessage messageOf(const Reading& reading, const MailMessage& message, std::string_view body) {
    std::string text;
    for (const std::string_view name : {"content-type", "content-transfer-encoding"}) {
        const std::string_view raw = reading.field(message, name);
        if (!raw.empty()) text.append(raw).append(lineEnd);
    }
    // A message has a field.
    text += "MIME-Version: 1.0\r\n\r\n";
    ByteBuffer bytes(text.size() + body.size());
    std::ranges::copy(text, bytes.data());
    std::ranges::copy(body, bytes.data() + text.size());
    bytes.setSize(text.size() + body.size());
    return MailMessage::parse(std::move(bytes));
}

std::string withPlainTypography(std::string_view text) {
    constexpr std::pair<std::string_view, std::string_view> plain[] = {
        {"“", "\""}, {"”", "\""}, {"„", "\""},  {"‘", "'"},       {"’", "'"},
        {"–", "-"},  {"—", "--"}, {"…", "..."}, {"\xC2\xA0", " "}};
    std::string made;
    for (std::size_t i = 0; i < text.size();) {
        const std::string_view rest = text.substr(i);
        const auto* found =
            static_cast<unsigned char>(rest.front()) < 0x80
                ? std::end(plain)
                : std::ranges::find_if(plain, [&](const auto& each) { return rest.starts_with(each.first); });
        if (found == std::end(plain)) {
            made += text[i++];
            continue;
        }
        made += found->second;
        i += found->first.size();
    }
    return made;
}

bool changesLines(RewrittenForm form) {
    using enum RewrittenForm;
    return form == fromQuoting || form == dots || form == blanks || form == blankLines ||
           form == lineBreaks || form == indentation || form == typography;
}

std::span<const Reversal> reversals() { return all; }

}  // namespace quillmark
