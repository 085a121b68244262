// A digest as a message.
#include "zelvek/notices/mail.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace zelvek::notices {

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

Mail Plain() {
    return {"zelvek@panel.example", "admin@panel.example", "A subject",
            "One line.\n",          "zelvek.1@panel",      vek_date::DateTime("2026-11-21 20:13:40")};
}

std::string BodyOf(const std::string& text) {
    Mail mail = Plain();
    mail.text = text;
    const std::string message = MessageOf(mail);
    return message.substr(message.find("\r\n\r\n") + 4);
}

std::string HeaderOf(const std::string& subject) {
    Mail mail = Plain();
    mail.subject = subject;
    const std::string message = MessageOf(mail);
    return message.substr(0, message.find("\r\n\r\n"));
}

// Behaviours of: Notices

// Behaviour: A mail says from whom, to whom, when, what about, and that no person has written it
TEST(Message, HasItsHeader) {
    EXPECT_EQ(MessageOf(Plain()),
              "From: zelvek@panel.example\r\nTo: admin@panel.example\r\nSubject: A subject\r\n"
              "Date: Sat, 21 Nov 2026 20:13:40 +0000\r\nMessage-ID: <zelvek.1@panel>\r\n"
              "Auto-Submitted: auto-generated\r\nMIME-Version: 1.0\r\n"
              "Content-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n"
              "One line.\r\n");
    Mail early = Plain();
    early.date = vek_date::DateTime("1969-12-31 00:00:00");
    EXPECT_THAT(MessageOf(early), HasSubstr("Date: Wed, 31 Dec 1969"));
}

// Behaviour: Nothing in a subject begins another header line
TEST(Message, SubjectCannotBeginAnotherLine) {
    EXPECT_THAT(HeaderOf("a\r\nBcc: b@c.example\r\n\r\nx"),
                HasSubstr("\r\nSubject: a Bcc: b@c.example x\r\n"));
    Mail mail = Plain();
    mail.to = "a@b.example\r\nBcc: b@c.example";
    EXPECT_THAT(MessageOf(mail), Not(HasSubstr("\nBcc")));
}

// Behaviour: A long subject in ASCII is folded at its blanks
TEST(Message, SubjectIsFolded) {
    const std::string ten = "abcdefghi ";
    EXPECT_THAT(HeaderOf(ten + ten + ten + ten + ten + ten + ten + ten + "end"),
                HasSubstr("\r\nSubject: abcdefghi abcdefghi abcdefghi abcdefghi abcdefghi abcdefghi\r\n"
                          " abcdefghi abcdefghi end\r\n"));
    EXPECT_THAT(HeaderOf(std::string(80, 'x')), HasSubstr("Subject: =?utf-8?B?"));
}

// Behaviour: A subject that is no ASCII text is encoded in words of at most 75 characters, cut between
//   characters; a long one is shortened
TEST(Message, SubjectIsEncoded) {
    EXPECT_THAT(HeaderOf("b\u00fccher"), HasSubstr("\r\nSubject: =?utf-8?B?YsO8Y2hlcg==?=\r\n"));
    EXPECT_THAT(HeaderOf("=?utf-8?B?YQ==?="),
                HasSubstr("\r\nSubject: =?utf-8?B?PT91dGYtOD9CP1lRPT0/PQ==?=\r\n"));
    std::string lengthy;
    for (int i = 0; i < 60; ++i) lengthy += "\u20ac";
    std::istringstream header(HeaderOf(lengthy + lengthy));
    int words = 0;
    for (std::string line; std::getline(header, line);) {
        EXPECT_LE(line.size(), 86u) << line;
        // Thirteen characters of three bytes each: no word ends inside one.
        if (line.find("?B?") != std::string::npos) {
            ++words;
            EXPECT_THAT(line, HasSubstr("?B?4oKs"));
        }
    }
    EXPECT_EQ(words, 6);
}

// Behaviour: A mail's text is ASCII in short lines whatever it was, and nothing in it reads as the end of the
//   mail or as another one's beginning
TEST(Message, BodyIsQuotedPrintable) {
    EXPECT_EQ(BodyOf("b\u00fccher = 1\n"), "b=C3=BCcher =3D 1\r\n");
    EXPECT_EQ(BodyOf(".\n.x\nFrom here\n"), "=2E\r\n=2Ex\r\n=46rom here\r\n");
    EXPECT_EQ(BodyOf("end \n\nlast"), "end=20\r\n\r\nlast\r\n");
    EXPECT_EQ(BodyOf("\r\x1b\n"), "=0D=1B\r\n");
    EXPECT_EQ(BodyOf(std::string(100, 'x') + "\n"),
              std::string(75, 'x') + "=\r\n" + std::string(25, 'x') + "\r\n");
    EXPECT_EQ(BodyOf(std::string(75, 'x') + "."), std::string(75, 'x') + "=\r\n=2E\r\n");
}

// Behaviour: An address is one local part and one domain in plain ASCII; what could be several, an option or
// a
//   header's part is none
TEST(Address, IsPlain) {
    for (const std::string good : {"a@b", "first.last+tag@mail.example", "a/b@c.example"})
        EXPECT_TRUE(IsAddress(good)) << good;
    for (const std::string bad : {"", "a", "@b", "a@", "a@b@c", "a b@c", "a@b,c@d", "<a@b>", "\"a\"@b",
                                  "a@b\n", "-a@b", "b\u00fc@c", "a:b@c", "a;b@c", "(a)@b", "a@[1.2.3.4]"})
        EXPECT_FALSE(IsAddress(bad)) << bad;
    EXPECT_TRUE(IsAddress(std::string(250, 'x') + "@b.c"));
    EXPECT_FALSE(IsAddress(std::string(251, 'x') + "@b.c"));
}

}  // namespace

}  // namespace zelvek::notices
