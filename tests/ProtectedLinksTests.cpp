#include "QuillmarkKit/Checks/ProtectedLinks.h"
#include "tests/Test.h"

namespace quillmark {
namespace {

std::string without(std::string_view text) {
    return withoutProtectedLinks(text, protectedLinks(text), text.starts_with('<') && text[1] == 'a');
}

TEST(ProtectedLinks, areWhatWasSent) {
    const struct {
        std::string text, sent;
    } rows[] = {
        // A value of the query, with percent signs, hyphens or base64.
        {"See "
         "https://eu.links.example/"
         "?url=https%3A%2F%2Fexample.org%2Fa%3Fb%3D1%26c%3D2&data=05%7C01&reserved=0.\r\n",
         "See https://example.org/a?b=1&c=2.\r\n"},
        {"(HTTPS://p.example/url?a=http%3a%2f%2fexample.org&c=E,1,x&typo=1)", "(http://example.org)"},
        {"<https://d.example/v2/url?u=https-3A__example.org_a-5Fb-3Fx-3D1&d=DwMF&c=z&e= >",
         "<https://example.org/a_b?x=1 >"},
        {"https://s.example/?d=example.org&u=aHR0cHM6Ly9leGFtcGxlLm9yZy9hP2I9MQ==&h=1",
         "https://example.org/a?b=1"},
        // Behind underscores, with what could not stand there at its end: one character, or several.
        {"https://u.example/v3/__https://example.org/a*b__;Jw!!k!t$ x", "https://example.org/a'b x"},
        {"https://u.example/v3/__https:/example.org/**Ac*d__;4oKsJyM!!k!t$",
         "https://example.org/\u20ac'c#d"},
        // The last part of the path.
        {"https://w.example/1aB-x_y/https%3A%2F%2Fexample.org%2Fa%3Fb", "https://example.org/a?b"},
        // HTML.
        {"<a href=\"https://e.example/?url=https%3A%2F%2Fexample.org%2F%3Fb%26c&amp;data=1\">",
         "<a href=\"https://example.org/?b&amp;c\">"},
        {"<a href=\"https://e.example/?url=https%3A%2F%2Fexample.org%2F&amp;data=1\" "
         "originalsrc=\"https://example.org/A?b&amp;c\" shash=\"x==\" id=\"y\">",
         "<a href=\"https://example.org/A?b&amp;c\" id=\"y\">"},
        {"<a href=\"https://u.example/v3/__https://example.org/?b&amp;c__;!!k!t$\">",
         "<a href=\"https://example.org/?b&amp;c\">"},
        // Links of no such service, and what would write more than a link.
        {"https://example.org/?a=b&c=d https://example.org/?url=https%3A%2F%2Fexample.org/ xhttp://a%3A/",
         "https://example.org/?a=b&c=d https://example.org/?url=https%3A%2F%2Fexample.org/ xhttp://a%3A/"},
        {"https://e.example/?url=https%3A%2F%2Fexample.org%2F%22%3E&data=1",
         "https://e.example/?url=https%3A%2F%2Fexample.org%2F%22%3E&data=1"},
        {"https://u.example/v3/__https://a/**", "https://u.example/v3/__https://a/**"},
    };
    for (const auto& row : rows) EXPECT_EQ(without(row.text), row.sent);
}

}  // namespace
}  // namespace quillmark
