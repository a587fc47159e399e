#include "platform/platform.h"
#include "support.h"

namespace tarnvale::platform {
namespace {

using test::TempDir;

TEST(CodePage, Utf8ToWindows1252AndBack) {
    EXPECT_EQ(toWindows1252("abc"), "abc");
    EXPECT_EQ(toWindows1252("\xC3\xA9"), "\xE9");
    EXPECT_EQ(toWindows1252("\xE2\x82\xAC"), "\x80");         // euro sign
    EXPECT_EQ(toWindows1252("\xE6\x97\xA5"), "?");            // not in the code page
    EXPECT_EQ(toWindows1252("\xFF" "a"), "\xFF" "a");         // a stray byte stands for itself
    EXPECT_EQ(fromWindows1252("\xE9\x80"), "\xC3\xA9\xE2\x82\xAC");
}

TEST(TextSink, ColumnsPrintZonesAndCodePage) {
    TempDir d;
    TextSink s;
    s.open(d.file("o.txt"));
    s.writeChar('}');
    EXPECT_EQ(s.column(), 1u);
    s.nextPrintZone();
    EXPECT_EQ(s.column(), 14u);
    s.nextPrintZone();
    EXPECT_EQ(s.column(), 28u);
    s.endLine();
    EXPECT_EQ(s.column(), 0u);
    s.nextPrintZone();
    EXPECT_EQ(s.column(), 14u);
    s.write("\xC3\xA9");
    s.close();
    EXPECT_EQ(test::readFile(d.file("o.txt")), "}" + std::string(27, ' ') + "\r\n" + std::string(14, ' ') + "\xE9");
}

TEST(TextSink, LargeOutputCrossesTheBuffer) {
    TempDir d;
    TextSink s;
    s.open(d.file("big.txt"));
    std::string chunk(1000, 'x');
    for (int i = 0; i < 3000; ++i) s.writeRaw(chunk);
    s.close();
    EXPECT_EQ(std::filesystem::file_size(d.file("big.txt")), 3000000u);
}

TEST(TextSink, UnwritableFolderFailsWithTheSystemText) {
    try {
        TextSink s;
        s.open("/nonexistent-folder/x.x");
        FAIL();
    } catch (const Failure& e) {
        EXPECT_EQ(e.number(), err::kPathNotFound);
        EXPECT_NE(e.description().find("No such file or directory"), std::string::npos);
    }
}

TEST(TextSource, LineEndsOfEveryKind) {
    TempDir d;
    test::writeFile(d.file("t"), "a\r\nb\nc\rd");
    TextSource src;
    src.open(d.file("t"));
    std::string line;
    std::vector<std::string> got;
    while (src.readLine(line)) got.push_back(line);
    EXPECT_EQ(got, (std::vector<std::string>{"a", "b", "c", "d"}));
}

TEST(IniSettings, ReadsBySectionAndKeyWithDefaults) {
    TempDir d;
    test::writeFile(d.file("s.ini"), "[MorvanePlugin\\Tarnvale]\nFieldId=Mine\nApplication = tool.exe\n[Other]\nAttachId=no\n");
    IniSettings s(d.file("s.ini"));
    EXPECT_EQ(s.getSetting("MorvanePlugin", "Tarnvale", "FieldId", "FS10"), "Mine");
    EXPECT_EQ(s.getSetting("MorvanePlugin", "Tarnvale", "Application", "x"), "tool.exe");
    EXPECT_EQ(s.getSetting("MorvanePlugin", "Tarnvale", "AttachId", "FS10att"), "FS10att");
    IniSettings missing(d.file("none.ini"));
    EXPECT_EQ(missing.getSetting("MorvanePlugin", "Tarnvale", "FieldId", "FS10"), "FS10");
}

TEST(RegFile, ParsesStringsDwordsAndHex) {
    RegFileRegistry r;
    r.parse("Windows Registry Editor Version 5.00\r\n\r\n"
            "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Test]\r\n"
            "\"Path\"=\"C:\\\\SDK\\\\\"\r\n"
            "\"Count\"=dword:0000002a\r\n"
            "\"Bin\"=hex:01,02,\\\r\n  03\r\n"
            "@=\"default\"\r\n"
            "broken line\r\n");
    RegValue v;
    ASSERT_TRUE(r.queryValue(kHkeyLocalMachine, "software\\test", "path", v));
    EXPECT_EQ(v.type, kRegString);
    EXPECT_EQ(std::string(v.data.begin(), v.data.end()), std::string("C:\\SDK\\\0", 8));
    ASSERT_TRUE(r.queryValue(kHkeyLocalMachine, "SOFTWARE\\Test", "Count", v));
    EXPECT_EQ(v.type, kRegDword);
    EXPECT_EQ(v.data, (std::vector<uint8_t>{0x2a, 0, 0, 0}));
    ASSERT_TRUE(r.queryValue(kHkeyLocalMachine, "SOFTWARE\\Test", "Bin", v));
    EXPECT_EQ(v.data, (std::vector<uint8_t>{1, 2, 3}));
    ASSERT_TRUE(r.queryValue(kHkeyLocalMachine, "SOFTWARE\\Test", "", v));
    EXPECT_TRUE(r.openKey(kHkeyLocalMachine, "SOFTWARE\\Test\\", 0x3F));
    EXPECT_FALSE(r.openKey(kHkeyLocalMachine, "SOFTWARE\\Other", 0x3F));
    EXPECT_FALSE(r.queryValue(kHkeyLocalMachine, "SOFTWARE\\Test", "Nope", v));
}

TEST(SplitCommandLine, WindowsRules) {
    struct Row {
        const char* line;
        std::vector<std::string> args;
    };
    const Row rows[] = {
        {R"(C:\t\x.exe /dict:"C:\a b\m.xml" "C:\o\p.x")", {R"(C:\t\x.exe)", R"(/dict:C:\a b\m.xml)", R"(C:\o\p.x)"}},
        {R"(C:\Program Files\x.exe /a)", {R"(C:\Program)", R"(Files\x.exe)", "/a"}},
        {R"(a\\"b c" d)", {R"(a\b c)", "d"}},
        {R"(a\"b c)", {R"(a"b)", "c"}},
        {R"("a""b" c)", {R"(a"b)", "c"}},
        {"  x   y  ", {"x", "y"}},
    };
    for (const Row& r : rows) EXPECT_EQ(splitCommandLine(r.line), r.args) << r.line;
}

TEST(Guids, RandomVersionFour) {
    RandomGuids g;
    Guid a, b;
    ASSERT_TRUE(g.create(a));
    ASSERT_TRUE(g.create(b));
    EXPECT_EQ(a.data3 >> 12, 4);
    EXPECT_EQ(a.data4[0] & 0xC0, 0x80);
    EXPECT_FALSE(a.data1 == b.data1 && a.data2 == b.data2);
}

} // namespace
} // namespace tarnvale::platform
