// Finding a message file along a search list, and a key in its text.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "run_tool.h"
#include "trcmsg.h"

using kelvotest::readFile;
using kelvotest::TempDir;

namespace {

// Offset of the key in text as trcMsgFind reports it, or -1 for none. The
// text is copied into a block of exactly its length so that a read past the
// end shows up under the address sanitizer.
long find(const std::string& text, const char* key)
{
    std::unique_ptr<char[]> block(new char[text.size() + 1]);
    std::memcpy(block.get(), text.data(), text.size());
    const char* at = trcMsgFind(block.get(), key, static_cast<int>(text.size()));
    return at == nullptr ? -1 : at - block.get();
}

// Offset as above within the first length bytes of text.
long findIn(const std::string& text, const char* key, int length)
{
    const char* at = trcMsgFind(text.c_str(), key, length);
    return at == nullptr ? -1 : at - text.c_str();
}

const char* const listVariable = "KELVO_TEST_MSGPATH";

// Contents of the stream that trcMsgOpenFile gives for the search list, or
// nothing if it gives none; errno is left as the call left it.
std::optional<std::string> openAlong(const std::optional<std::string>& list,
                                     const std::string& fileName)
{
    if (list) {
        setenv(listVariable, list->c_str(), 1);
    } else {
        unsetenv(listVariable);
    }
    errno = 0;
    FILE* stream = trcMsgOpenFile(listVariable, fileName.c_str(), "r");
    if (stream == nullptr) {
        return std::nullopt;
    }
    const int savedErrno = errno;
    std::string content;
    char buffer[256];
    std::size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, stream)) > 0) {
        content.append(buffer, n);
    }
    std::fclose(stream);
    errno = savedErrno;
    return content;
}

}  // namespace

TEST(MessageFind, SkipsQuotedBracketedAndStarredRegions)
{
    EXPECT_EQ(find("abc KEY def", "KEY"), 4);
    EXPECT_EQ(find("KEY", "KEY"), 0);
    EXPECT_EQ(find("xKEY", "KEY"), 1);
    EXPECT_EQ(find("no key here", "KEY"), -1);

    EXPECT_EQ(find("a \"KEY\" b", "KEY"), -1);
    EXPECT_EQ(find("a \"KEY\" KEY", "KEY"), 8);
    EXPECT_EQ(find("a (KEY) b", "KEY"), -1);
    EXPECT_EQ(find("a (KEY)KEY", "KEY"), 7);
    EXPECT_EQ(find("a * KEY\nb", "KEY"), -1);
    EXPECT_EQ(find("a * KEY\nKEY", "KEY"), 8);

    // Regions do not nest; the closer of one kind is plain text in another.
    EXPECT_EQ(find("(\"KEY)\" KEY", "KEY"), -1);
    EXPECT_EQ(find("(a\"b) KEY", "KEY"), 6);
    EXPECT_EQ(find("\"a)\"KEY", "KEY"), 4);
    EXPECT_EQ(find("*a\"b\nKEY", "KEY"), 5);
    EXPECT_EQ(find("(a\n KEY)", "KEY"), -1);
}

TEST(MessageFind, TheStartAlwaysCounts)
{
    EXPECT_EQ(find("\"KEY\" x", "\"KEY"), 0);
    EXPECT_EQ(find("(KEY) x", "(KEY"), 0);
    EXPECT_EQ(find("*KEY x", "*KEY"), 0);
    EXPECT_EQ(find("anything", ""), 0);
    EXPECT_EQ(find("", ""), 0);
}

TEST(MessageFind, UnclosedRegionsAndLimits)
{
    EXPECT_EQ(find("a \"KEY KEY KEY", "KEY"), -1);
    EXPECT_EQ(find("a (KEY KEY", "KEY"), -1);
    EXPECT_EQ(find("a * KEY KEY", "KEY"), -1);
    EXPECT_EQ(find("a\"", "KEY"), -1);

    // A key longer than the text, or reaching past the length, is no match.
    EXPECT_EQ(find("KE", "KEY"), -1);
    EXPECT_EQ(find("", "K"), -1);
    EXPECT_EQ(findIn("abKEY", "KEY", 4), -1);
    EXPECT_EQ(findIn("abKEY", "KEY", 5), 2);
    EXPECT_EQ(findIn("KEY", "KEY", 2), -1);
    EXPECT_EQ(findIn("KEY", "KEY", -1), -1);
    // A region closed by the very last byte leaves no room for the key.
    EXPECT_EQ(find("x\"KEY\"", "KEY"), -1);
    EXPECT_EQ(find("(a)KEY", "KEY"), 3);
    // Zero bytes in the text are plain bytes.
    EXPECT_EQ(find(std::string("a\0KEY", 5), "KEY"), 2);
}

TEST(MessageOpenFile, TakesTheFirstDirectoryThatHoldsTheFile)
{
    TempDir first;
    TempDir second;
    first.write("trc.msg", "first");
    second.write("trc.msg", "second");
    second.write("only.msg", "only in second");

    EXPECT_EQ(openAlong(first.path() + ":" + second.path(), "trc.msg"), "first");
    EXPECT_EQ(openAlong(second.path() + ":" + first.path(), "trc.msg"), "second");
    EXPECT_EQ(openAlong(first.path() + ":" + second.path(), "only.msg"), "only in second");
    EXPECT_EQ(openAlong(first.path() + "/missing:" + second.path(), "trc.msg"), "second");

    EXPECT_EQ(openAlong(first.path() + ":" + second.path(), "none.msg"), std::nullopt);
    EXPECT_EQ(errno, ENOENT);

    // The mode goes to fopen as it is.
    setenv(listVariable, first.path().c_str(), 1);
    FILE* stream = trcMsgOpenFile(listVariable, "new.msg", "w");
    ASSERT_NE(stream, nullptr);
    std::fputs("written", stream);
    std::fclose(stream);
    EXPECT_EQ(readFile(first.file("new.msg")), "written");
}

TEST(MessageOpenFile, EmptyPiecesAndUnsetList)
{
    TempDir dir;
    dir.write("trc.msg", "found");
    // The file name below an empty piece is taken from the root.
    const std::string fromRoot = dir.path().substr(1) + "/trc.msg";

    EXPECT_EQ(openAlong(std::nullopt, "trc.msg"), std::nullopt);
    EXPECT_EQ(errno, EINVAL);

    EXPECT_EQ(openAlong(std::string(""), fromRoot), std::nullopt);
    EXPECT_EQ(openAlong("/kelvo-missing::/kelvo-missing", fromRoot), "found");
    EXPECT_EQ(openAlong(":" + dir.path(), fromRoot), "found");
    EXPECT_EQ(openAlong("/kelvo-missing:", fromRoot), std::nullopt);
    EXPECT_EQ(openAlong(dir.path() + ":", "trc.msg"), "found");
}

TEST(MessageOpenFile, TooLongAPathIsSkipped)
{
    TempDir dir;
    dir.write("trc.msg", "found");
    const std::string longDir = "/" + std::string(70000, 'd');

    EXPECT_EQ(openAlong(longDir, "trc.msg"), std::nullopt);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(openAlong(longDir + ":" + dir.path(), "trc.msg"), "found");
    EXPECT_EQ(openAlong(dir.path(), std::string(70000, 'f')), std::nullopt);
}
