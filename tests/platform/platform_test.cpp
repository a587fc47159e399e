#include "platform/platform.h"
#include "support.h"

namespace tarnvale::platform {
namespace {

using test::TempDir;
namespace fs = std::filesystem;

TEST(Text, CodePageCharactersAndCase) {
    EXPECT_EQ(toWindows1252("abc\xC3\xA9\xE2\x82\xAC"), "abc\xE9\x80"); // é and the euro sign
    EXPECT_EQ(toWindows1252("\xE6\x97\xA5"), "?");                      // not in the code page
    EXPECT_EQ(toWindows1252("\xFF"
                            "a"),
              "\xFF"
              "a"); // a stray byte stands for itself
    EXPECT_EQ(fromWindows1252("\xE9\x80"), "\xC3\xA9\xE2\x82\xAC");
    EXPECT_EQ(characterCount("wing.bm\xC3\xA9"), 8u);
    EXPECT_EQ(upperCase("\xC3\xA9lev \xC5\xA1\xC3\xBF \xD0\xB4"), "\xC3\x89LEV \xC5\xA0\xC5\xB8 \xD0\xB4");
    EXPECT_EQ(lowerCase("\xC3\x89LEV \xC5\x92"), "\xC3\xA9lev \xC5\x93");
    struct Row {
        const char *text, *part;
        bool starts, contains;
    };
    const Row rows[] = {
        {"\xC3\x89levator_1", "\xC3\x89LEVATOR", true, true}, // Élevator_1 against ÉLEVATOR
        {"wheel_left", "WHEEL", true, true},
        {"c_wheel_left", "Wheel", false, true},
        {"wheel", "wheel_left", false, false},
        {"\xC3\xA9", "e", false, false},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(startsWithNoCase(r.text, r.part), r.starts) << r.text << " " << r.part;
        EXPECT_EQ(containsNoCase(r.text, r.part), r.contains) << r.text << " " << r.part;
    }
}

TEST(Text, FilesDecodeFromTheirEncoding) {
    auto utf16 = [](const std::string& s, bool mark) {
        std::string out = mark ? "\xFF\xFE" : "";
        for (char c : s)
            out += c, out += '\0';
        return out;
    };
    const std::pair<std::string, std::string> rows[] = {
        {utf16("R\r\n", true), "R\r\n"},
        {utf16("R\n", false), "R\n"},
        {std::string("\xFF\xFE\xE9\0\x3D\xD8\x00\xDE", 8),
         "\xC3\xA9\xF0\x9F\x98\x80"}, // é and a pair of surrogates
        {"\xEF\xBB\xBFR\xC3\xA9", "R\xC3\xA9"},
        {"R\xE9", "R\xC3\xA9"}, // not UTF-8: Windows-1252
    };
    for (const auto& [bytes, text] : rows)
        EXPECT_EQ(decodeTextFile(bytes), text);
}

TEST(TextSink, ColumnsPrintZonesCodePageAndBufferEdges) {
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
    s.write("\xC3\xA9");
    const std::string chunk(1000, 'x');
    for (int i = 0; i < 3000; ++i)
        s.writeRaw(chunk); // crosses the buffer
    s.close();
    EXPECT_EQ(test::readFile(d.file("o.txt")), "}" + std::string(27, ' ') + "\r\n" + std::string(14, ' ') +
                                                   "\xE9" + std::string(3000000, 'x'));
    EXPECT_NE(
        test::failureOf([&] { s.open("/nonexistent-folder/x.x"); }, err::kPathNotFound).find("No such file"),
        std::string::npos);
}

// Texts made on another thread take their places in the file, whatever is written
// meanwhile; a task's failure is thrown, and what came before it stays on disk.
// With helpers, every job runs once and a failure reaches the caller; without,
// the caller runs them in turn. (That the caller takes the jobs no helper has
// taken shows in time only: generating levels, 0.27 s on 2 threads, 0.50 s on one.)
TEST(Workers, RunAllRunsEveryJobOnceAndRethrows) {
    Workers two(2);
    std::atomic<int> ran{0};
    runAll(&two, std::vector<std::function<void()>>(16, [&] { ++ran; }));
    EXPECT_EQ(ran, 16);
    EXPECT_THROW(runAll(&two, {[] {}, [] { throw Failure(5, "no"); }}), Failure);
    std::vector<int> order;
    runAll(nullptr, {[&] { order.push_back(1); }, [&] { order.push_back(2); }});
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(TextSink, TextsMadeElsewhereTakeTheirPlaces) {
    TempDir d;
    Workers workers(2);
    std::atomic<bool> go{false};
    auto later = [&](std::string text, bool fails = false) {
        auto made = std::make_shared<std::string>();
        return std::pair{workers.post([&go, made, text, fails] {
                             while (!go)
                                 std::this_thread::yield();
                             if (fails) throw Failure(err::kOverflow, "Overflow");
                             *made = text;
                         }),
                         made};
    };
    {
        TextSink s;
        s.open(d.file("a.txt"));
        s.writeRaw("1 ");
        auto [task, text] = later("made");
        s.writeLater(task, text);
        s.writeRaw(" 2");
        s.endLine();
        s.writeChar('}');
        go = true;
        s.nextPrintZone(); // the column behind a text not yet written
        s.writeRaw("3");
        s.close();
    }
    EXPECT_EQ(test::readFile(d.file("a.txt")), "1 made 2\r\n}" + std::string(13, ' ') + "3");
    go = false;
    {
        TextSink s;
        s.open(d.file("b.txt"));
        for (const auto& [text, fails] : {std::pair{"one", false}, {"", true}, {"three", false}}) {
            auto [task, made] = later(text, fails);
            s.writeLater(task, made);
            s.writeRaw(";");
        }
        go = true;
        EXPECT_EQ(test::failureOf([&] { s.close(); }, err::kOverflow), "Overflow");
    }
    EXPECT_EQ(test::readFile(d.file("b.txt")), "one;");
}

// A file written again keeps its mode; through a link the file linked to is
// written, and the link stays.
TEST(TextSink, AFileWrittenAgainKeepsItsModeAndItsLinks) {
    TempDir d;
    const std::string file = d.file("plain.x"), target = d.file("target.x"), hard = d.file("hard.x"),
                      soft = d.file("soft.x");
    for (const std::string& f : {file, target})
        test::writeFile(f, "old");
    const fs::perms mode = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
    fs::permissions(file, mode);
    fs::create_hard_link(target, hard);
    fs::create_symlink(target, soft);
    for (const std::string& f : {file, hard, soft}) {
        TextSink s;
        s.open(f);
        s.writeRaw("new " + f);
        s.close();
    }
    EXPECT_EQ(fs::status(file).permissions(), mode);
    EXPECT_TRUE(fs::is_symlink(soft));
    EXPECT_EQ(test::readFile(target), "new " + soft);
    EXPECT_EQ(fs::hard_link_count(target), 2u);
}

TEST(TextSource, LineEndsOfEveryKindAndFilesThatCannotBeRead) {
    TempDir d;
    test::writeFile(d.file("t"), "a\r\nb\nc\rd");
    TextSource src;
    src.open(d.file("t"));
    std::string line;
    std::vector<std::string> got;
    while (src.readLine(line))
        got.push_back(line);
    EXPECT_EQ(got, (std::vector<std::string>{"a", "b", "c", "d"}));
    // A folder opens as a file would, and a read can fail: both are failures.
    EXPECT_THROW(src.open(d.path()), Failure);
    src.open("/proc/self/mem");
    EXPECT_THROW(src.readLine(line), Failure);
}

TEST(IniSettings, SectionsAndKeysIgnoreCaseAndLinesHaveNoLimit) {
    TempDir d;
    const std::string longPath = "C:\\" + std::string(500, 'p') + "\\Tarnvale.X";
    const std::string text =
        "; comment\r\n[morvaneplugin\\TARNVALE]\r\nfieldid=Mine\r\nApplication = \"tool.exe\"\r\n"
        "FieldId=Second\r\nTemplate=" +
        longPath + "\r\n[Other]\r\nAttachId=no\r\n";
    std::string utf16 = "\xFF\xFE"; // as a Windows editor saves "Unicode"
    for (char c : text)
        utf16 += c, utf16 += '\0';
    for (const std::string& file : {"\xEF\xBB\xBF" + text, utf16}) {
        test::writeFile(d.file("s.ini"), file);
        IniSettings s(d.file("s.ini"));
        const std::pair<const char*, std::string> rows[] = {{"FieldId", "Mine"},
                                                            {"Application", "tool.exe"},
                                                            {"AttachId", "FS10att"},
                                                            {"Template", longPath}};
        for (const auto& [key, value] : rows)
            EXPECT_EQ(s.getSetting("MorvanePlugin", "Tarnvale", key, "FS10att"), value) << key;
    }
    IniSettings missing(d.file("none.ini"));
    EXPECT_EQ(missing.getSetting("MorvanePlugin", "Tarnvale", "FieldId", "FS10"), "FS10");
}

TEST(RegFile, ParsesStringsDwordsAndHexInEitherEncoding) {
    const std::string text = "Windows Registry Editor Version 5.00\r\n\r\n"
                             "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Test]\r\n"
                             "\"Path\"=\"C:\\\\SDK \xC3\xA9\\\\\"\r\n"
                             "\"Count\"=dword:0000002a\r\n"
                             "\"Bin\"=hex:01,02,\\\r\n  03\r\n"
                             "@=\"default\"\r\n"
                             "broken line\r\n";
    auto utf16 = [](const std::string& s, bool mark) { // of text whose only non-ASCII letter is é
        std::string out = mark ? "\xFF\xFE" : "";
        for (size_t i = 0; i < s.size(); ++i)
            out += s[i] == '\xC3' ? '\xE9' : s[i], out += '\0', i += s[i] == '\xC3';
        return out;
    };
    std::string lf = text;
    for (size_t at; (at = lf.find('\r')) != std::string::npos;)
        lf.erase(at, 1);
    TempDir d;
    for (const std::string& file : {text, lf, utf16(text, true), utf16(lf, false)}) {
        test::writeFile(d.file("r.reg"), file);
        RegFileRegistry r(d.file("r.reg"));
        RegValue v;
        ASSERT_TRUE(r.queryValue(kHkeyLocalMachine, "software\\test", "path", v));
        EXPECT_EQ(v.type, kRegString);
        EXPECT_EQ(std::string(v.data.begin(), v.data.end()), std::string("C:\\SDK \xC3\xA9\\\0", 11));
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
}

TEST(SplitCommandLine, WindowsRules) {
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {R"(C:\t\x.exe /dict:"C:\a b\m.xml" "C:\o\p.x")",
         {R"(C:\t\x.exe)", R"(/dict:C:\a b\m.xml)", R"(C:\o\p.x)"}},
        {R"(C:\Program Files\x.exe /a)", {R"(C:\Program)", R"(Files\x.exe)", "/a"}},
        {R"(a\\"b c" d)", {R"(a\b c)", "d"}},
        {R"(a\"b c)", {R"(a"b)", "c"}},
        {R"("a""b" c)", {R"(a"b)", "c"}},
        {"  x   y  ", {"x", "y"}},
    };
    for (const auto& [line, args] : rows)
        EXPECT_EQ(splitCommandLine(line), args) << line;
}

TEST(Guids, RandomVersionFour) {
    RandomGuids g;
    Guid a, b;
    ASSERT_TRUE(g.create(a) && g.create(b));
    EXPECT_EQ(a.data3 >> 12, 4);
    EXPECT_EQ(a.data4[0] & 0xC0, 0x80);
    EXPECT_FALSE(a.data1 == b.data1 && a.data2 == b.data2);
}

} // namespace
} // namespace tarnvale::platform
