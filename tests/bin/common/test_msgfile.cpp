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

using kelvotest::TempDir;

namespace {

// Offset of the key in the first length bytes of text (all: -2) as trcMsgFind
// reports it, or -1 for none. The text lies in a block of exactly its length,
// so that a read past the end shows under the address sanitizer.
long find(const std::string& text, const char* key, int length = -2)
{
    std::unique_ptr<char[]> block(new char[text.size()]);
    std::memcpy(block.get(), text.data(), text.size());
    const int limit = length == -2 ? static_cast<int>(text.size()) : length;
    const char* at = trcMsgFind(block.get(), key, limit);
    return at == nullptr ? -1 : at - block.get();
}

const char* const listVariable = "KELVO_TEST_MSGPATH";

// Contents of the stream that trcMsgOpenFile gives for the search list (none:
// unset), or nothing and errno as the call left it.
std::optional<std::string> openAlong(const std::optional<std::string>& list, const std::string& fileName,
                                     const char* mode = "r")
{
    list ? setenv(listVariable, list->c_str(), 1) : unsetenv(listVariable);
    errno = 0;
    FILE* stream = trcMsgOpenFile(listVariable, fileName.c_str(), mode);
    if (stream == nullptr) {
        return std::nullopt;
    }
    std::string content;
    for (int c = std::fgetc(stream); c != EOF; c = std::fgetc(stream)) {
        content += static_cast<char>(c);
    }
    std::fclose(stream);
    return content;
}

}  // namespace

TEST(MessageFind, SkipsQuotedBracketedAndStarredRegionsExceptAtTheStart)
{
    const struct {
        std::string text;
        const char* key;
        long at;
        int length = -2;
    } cases[] = {
        {"abc KEY def", "KEY", 4},
        {"no key here", "KEY", -1},
        {"a \"KEY\" KEY", "KEY", 8},
        {"a (KEY)KEY", "KEY", 7},
        {"a * KEY\nKEY", "KEY", 8},
        // Regions do not nest; the closer of one kind is plain text in another.
        {"(\"KEY)\" KEY", "KEY", -1},
        {"(a\"b) KEY", "KEY", 6},
        {"\"a)\"KEY", "KEY", 4},
        {"*a\"b\nKEY", "KEY", 5},
        {"(a\n KEY)", "KEY", -1},
        {"\"KEY\" x", "\"KEY", 0},
        {"(KEY) x", "(KEY", 0},
        {"*KEY x", "*KEY", 0},
        {"anything", "", 0},
        {"", "", 0},
        // Unclosed regions, keys past the length, a region closed by the last byte.
        {"a \"KEY KEY KEY", "KEY", -1},
        {"a (KEY KEY", "KEY", -1},
        {"a * KEY KEY", "KEY", -1},
        {"a\"", "KEY", -1},
        {"KE", "KEY", -1},
        {"", "K", -1},
        {"abKEY", "KEY", -1, 4},
        {"abKEY", "KEY", 2, 5},
        {"KEY", "KEY", -1, -1},
        {"x\"KEY\"", "KEY", -1},
        {"(a)KEY", "KEY", 3},
        {std::string("a\0KEY", 5), "KEY", 2},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(find(c.text, c.key, c.length), c.at) << '"' << c.text << "\" " << c.key;
    }
}

// Also: an empty piece between colons stands for the root, a colon at the end
// for nothing, and a path too long to try is skipped.
TEST(MessageOpenFile, TakesTheFirstDirectoryThatHoldsTheFile)
{
    TempDir first;
    TempDir second;
    first.write("trc.msg", "first");
    second.write("trc.msg", "second");
    second.write("only.msg", "only in second");
    const std::string both = first.path() + ":" + second.path();
    const std::string fromRoot = second.path().substr(1) + "/trc.msg";
    const std::string longDir = "/" + std::string(70000, 'd');

    EXPECT_EQ(openAlong(both, "trc.msg"), "first");
    EXPECT_EQ(openAlong(second.path() + ":" + first.path(), "trc.msg"), "second");
    EXPECT_EQ(openAlong(both, "only.msg"), "only in second");
    EXPECT_EQ(openAlong(first.path() + "/missing:" + second.path(), "trc.msg"), "second");
    EXPECT_EQ(openAlong(both, "none.msg"), std::nullopt);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(openAlong(std::nullopt, "trc.msg"), std::nullopt);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(openAlong(first.path(), "new.msg", "w"), "");  // the mode goes to fopen as it is
    EXPECT_EQ(kelvotest::readFile(first.file("new.msg")), "");

    EXPECT_EQ(openAlong(std::string(""), fromRoot), std::nullopt);
    EXPECT_EQ(openAlong("/kelvo-missing::/kelvo-missing", fromRoot), "second");
    EXPECT_EQ(openAlong(":" + first.path(), fromRoot), "second");
    EXPECT_EQ(openAlong("/kelvo-missing:", fromRoot), std::nullopt);
    EXPECT_EQ(openAlong(second.path() + ":", "trc.msg"), "second");
    EXPECT_EQ(openAlong(longDir, "trc.msg"), std::nullopt);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(openAlong(longDir + ":" + second.path(), "trc.msg"), "second");
    EXPECT_EQ(openAlong(second.path(), std::string(70000, 'f')), std::nullopt);
}
