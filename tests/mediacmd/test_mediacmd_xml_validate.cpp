// Validation of MEDIACMD documents: the writer's documents are valid, and
// each malformed input is refused with the status and the line and element
// where it stops making sense.
#include <qrvutil/mediacmd_xml.h>
#include <qrvutil/status.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

std::string doc(const std::string &elements) { return "<MediaCmd>" + elements + "</MediaCmd>"; }

TEST(XmlValidate, WritersDocumentsAreValid)
{
    for (unsigned ct = 0; ct <= ctAbort; ++ct) {
        for (const unsigned tcType : {0u, 2u, 4u, 32u, 132u, 77u}) {
            MEDIACMD cmd;
            initMediaCmd(&cmd, ct);
            cmd.cmdFlags = 0xFFFFFFFFu & ~cfUseClipID;
            cmd.Speed = -65520;
            cmd.prev = 7;
            cmd.CmdAlt = ct * 1000;
            if (ct % 3 == 0) {
                cmd.cmdFlags |= cfUseClipID;
                std::strcpy(cmd.ClipID, "CLIP&<1>");
                std::strcpy(cmd.FileName, "/media/\"a\" 'b'.mov");
            }
            char *text = nullptr;
            ASSERT_EQ(0, MediaCmdToXMLString(&text, &cmd, tcType));
            char reason[QRV_REASON_SIZE];
            EXPECT_EQ(QRV_OK, MediaCmdValidateXMLString(text, reason, sizeof reason)) << reason;
            MediaCmdFreeXMLString(&text);
        }
    }
    // What peers write: command texts, timecode texts and the reader's names.
    EXPECT_EQ(QRV_OK, MediaCmdValidateXMLString(
                          doc("<Cmd cfOverideDeferred=\"1\">PlayBack</Cmd><Position "
                              "TcType=\"2\">01:00:00:00</Position>"
                              "<End>00:00:10;00</End><arbID Type=\"hex\" length=\"2\">0A1B</arbID>")
                              .c_str(),
                          nullptr, 0));
}

struct Malformed {
    const char *xml;
    int status;
    const char *reason;
};

TEST(XmlValidate, MalformedInputNamesLineAndElement)
{
    const Malformed cases[] = {
        {"<MediaCmd><Cmd Value=\"2\">", QRV_E_SYNTAX, "not well-formed"},
        {"", QRV_E_SYNTAX, "not well-formed"},
        {"<MediaCmd>\n  <Bogus/>\n</MediaCmd>", QRV_E_SYNTAX,
         "line 2, column 3, <Bogus>: unknown element"},
        {"<MediaCmd/>junk", QRV_E_SYNTAX, "line 1, column 12: trailing data"},
        {"<MediaCmd/>\r\n<Other/>", QRV_E_SYNTAX, "line 2, column 1, <Other>: trailing data"},
        {"<?xml version=\"1.0\"?>\n<Other/>", QRV_E_SYNTAX,
         "line 2, column 1, <Other>: unknown element"},
        {"<!--MediaCmd--><MediaCmd/>", QRV_E_SYNTAX,
         "<MediaCmd>: a comment or text of this name hides"},
        {"<MediaCmd>\n<Channel Value=\"4294967296\"/></MediaCmd>", QRV_E_RANGE,
         "line 2, column 1, <Channel>: Value 4294967296 is outside 32 bits"},
        {"<MediaCmd><Channel/></MediaCmd>", QRV_E_SYNTAX, "<Channel>: no Value"},
        {"<MediaCmd><Channel Value=\"3\n3\"/></MediaCmd>", QRV_E_SYNTAX,
         "<Channel>: Value \"3?3\" is not an integer"},
        {"<MediaCmd><Channel Value=\"1\">x</Channel></MediaCmd>", QRV_E_SYNTAX,
         "<Channel>: unexpected text"},
        {"<MediaCmd><Cmd Value=\"22\"/></MediaCmd>", QRV_E_RANGE,
         "<Cmd>: Value 22 is not a command code"},
        {"<MediaCmd><Cmd Value=\"12abc\"/></MediaCmd>", QRV_E_SYNTAX,
         "<Cmd>: Value \"12abc\" is not an integer"},
        {"<MediaCmd><Cmd>fly</Cmd></MediaCmd>", QRV_E_SYNTAX,
         "<Cmd>: no Value and no known command text"},
        {"<MediaCmd><Cmd Value=\"2\" Loop=\"2\"/></MediaCmd>", QRV_E_RANGE,
         "<Cmd>: Loop=\"2\" is not 0 or 1"},
        {"<MediaCmd><Cmd Value=\"2\" IsShuttle=\"1\"/></MediaCmd>", QRV_E_SYNTAX,
         "<Cmd>: unknown attribute \"IsShuttle\""},
        {"<MediaCmd>\n\n<Position TcType=\"drop-frame\">99:99</Position></MediaCmd>", QRV_E_RANGE,
         "line 3, column 1, <Position>: no Value and no timecode text"},
        {"<MediaCmd><Start Value=\"1\" TcType=\"300\"/></MediaCmd>", QRV_E_RANGE,
         "<Start>: TcType \"300\" is not a timecode type"},
        {"<MediaCmd><ClipID>123456789</ClipID></MediaCmd>", QRV_E_RANGE,
         "<ClipID>: text longer than 8 characters"},
        {"<MediaCmd><arbID Type=\"hex\" length=\"3\">0102</arbID></MediaCmd>", QRV_E_TRUNCATED,
         "<arbID>: 4 hexadecimal digits for 3 bytes"},
        {"<MediaCmd><arbID length=\"1\">0g</arbID></MediaCmd>", QRV_E_SYNTAX,
         "<arbID>: character 2 of the data"},
        {"<MediaCmd><arbID length=\"1\">010203</arbID></MediaCmd>", QRV_E_SYNTAX,
         "<arbID>: trailing data after 1 bytes"},
        {"<MediaCmd><arbID length=\"2000\"/></MediaCmd>", QRV_E_RANGE,
         "<arbID>: length \"2000\" is not 0 to 1040"},
        {"<MediaCmd><CmdID Value=\"1\"/>\n<CmdID Value=\"2\"/></MediaCmd>", QRV_E_SYNTAX,
         "line 2, column 1, <CmdID>: repeated element"},
        {"<MediaCmd><!--Cmd--><Cmd Value=\"1\"/></MediaCmd>", QRV_E_SYNTAX,
         "<Cmd>: a comment or text of this name hides"},
        {"<MediaCmd><Cmd Value=\"1\">\n<x/></Cmd></MediaCmd>", QRV_E_SYNTAX,
         "line 2, column 1, <x>: unknown element inside <Cmd>"},
        {"<MediaCmd>stray</MediaCmd>", QRV_E_SYNTAX, "<MediaCmd>: unexpected text"},
    };
    for (const Malformed &c : cases) {
        char reason[QRV_REASON_SIZE];
        EXPECT_EQ(c.status, MediaCmdValidateXMLString(c.xml, reason, sizeof reason)) << c.xml;
        EXPECT_NE(nullptr, std::strstr(reason, c.reason)) << c.xml << "\n  gave: " << reason;
        EXPECT_EQ(nullptr, std::strchr(reason, '\n')) << reason;
    }
}

TEST(XmlValidate, ReasonKeepsToItsRoom)
{
    char reason[12];
    std::memset(reason, 'x', sizeof reason);
    EXPECT_EQ(QRV_E_SYNTAX, MediaCmdValidateXMLString("<MediaCmd><Bogus/></MediaCmd>", reason, 8));
    EXPECT_EQ(std::string("line 1,"), reason);
    EXPECT_EQ('x', reason[8]);
    EXPECT_EQ(QRV_E_SYNTAX, MediaCmdValidateXMLString("<MediaCmd><Bogus/></MediaCmd>", reason, 0));
    EXPECT_EQ('l', reason[0]);
    EXPECT_EQ(QRV_E_ARGUMENT, MediaCmdValidateXMLString(nullptr, reason, sizeof reason));
}

} // namespace
