// Any bytes as a binary trace file through kelvo-export (JSON and CSV) and
// kelvo-stats, with and without a selection: every JSON output must parse
// as strict JSON in valid UTF-8, every CSV output must be valid UTF-8 with
// the header's number of fields on each row. The magic text and the layout
// word are put in place so that every input reaches the reports.
#include <fcntl.h>
#include <unistd.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "trcload.h"
#include "trcxreports.h"

namespace {

std::string tracePath;
bool prepared = false;

void writeFile(const std::string& path, const void* bytes, size_t size)
{
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0 || (size > 0 && write(fd, bytes, size) != static_cast<ssize_t>(size))) {
        std::abort();
    }
    close(fd);
}

void prepare()
{
    char dir[] = "/tmp/fuzz_export_XXXXXX";
    if (mkdtemp(dir) == nullptr) {
        std::abort();
    }
    const std::string tfi = "tfiversion 1 bldlvl \"x\" product Prod 1 component Comp 2 class Cls a b c\n"
                            "class Two f\ncomponent LongComponentName 200 class K g\n";
    writeFile(std::string(dir) + "/a.tfi", tfi.data(), tfi.size());
    setenv("TRCTFIDIR", dir, 1);
    tracePath = std::string(dir) + "/trace.bin";
    trcxTrace_t t;
    trcHeader_t header{};
    t.header = &header;
    trcxDictionary(&t);
    prepared = true;
}

// ---- A strict JSON reader that only says yes or no ----

struct json {
    const char* p;
    const char* end;
    int depth = 0;

    void ws()
    {
        while (p < end && (*p == ' ' || *p == '\n' || *p == '\t' || *p == '\r')) {
            ++p;
        }
    }
    bool lit(const char* word)
    {
        const size_t n = std::strlen(word);
        if (static_cast<size_t>(end - p) < n || std::memcmp(p, word, n) != 0) {
            return false;
        }
        p += n;
        return true;
    }
    bool string()
    {
        if (p >= end || *p++ != '"') {
            return false;
        }
        while (p < end && *p != '"') {
            const auto c = static_cast<unsigned char>(*p);
            if (c < 0x20) {
                return false;
            }
            if (c == '\\') {
                if (++p >= end) {
                    return false;
                }
                if (*p == 'u') {
                    for (int k = 0; k < 4; ++k) {
                        if (++p >= end || !std::isxdigit(static_cast<unsigned char>(*p))) {
                            return false;
                        }
                    }
                } else if (std::strchr("\"\\/bfnrt", *p) == nullptr) {
                    return false;
                }
            }
            ++p;
        }
        return p++ < end;
    }
    bool number()
    {
        const char* start = p;
        if (p < end && *p == '-') {
            ++p;
        }
        const char* digits = p;
        while (p < end && std::isdigit(static_cast<unsigned char>(*p))) {
            ++p;
        }
        if (p == digits || (*digits == '0' && p - digits > 1)) {
            return false;
        }
        if (p < end && *p == '.') {
            const char* fraction = ++p;
            while (p < end && std::isdigit(static_cast<unsigned char>(*p))) {
                ++p;
            }
            if (p == fraction) {
                return false;
            }
        }
        return p > start;
    }
    bool value()
    {
        if (++depth > 64) {
            return false;
        }
        ws();
        bool ok;
        if (p >= end) {
            ok = false;
        } else if (*p == '{' || *p == '[') {
            const char close = *p == '{' ? '}' : ']';
            const bool object = *p++ == '{';
            ws();
            ok = true;
            if (p < end && *p == close) {
                ++p;
            } else {
                for (;;) {
                    if (object) {
                        ws();
                        if (!string()) {
                            ok = false;
                            break;
                        }
                        ws();
                        if (p >= end || *p++ != ':') {
                            ok = false;
                            break;
                        }
                    }
                    if (!value()) {
                        ok = false;
                        break;
                    }
                    ws();
                    if (p < end && *p == ',') {
                        ++p;
                        continue;
                    }
                    ok = p < end && *p++ == close;
                    break;
                }
            }
        } else if (*p == '"') {
            ok = string();
        } else if (*p == 't' || *p == 'f' || *p == 'n') {
            ok = lit("true") || lit("false") || lit("null");
        } else {
            ok = number();
        }
        --depth;
        return ok;
    }
};

bool validUtf8(const std::string& text)
{
    const auto* t = reinterpret_cast<const unsigned char*>(text.data());
    for (size_t i = 0; i < text.size();) {
        const size_t n = trcxUtf8Length(t + i, text.size() - i);
        if (n == 0) {
            return false;
        }
        i += n;
    }
    return true;
}

template <typename Write>
std::string capture(Write write)
{
    char* text = nullptr;
    size_t size = 0;
    FILE* f = open_memstream(&text, &size);
    trcxOut_t o;
    trcxOutOpen(&o, f, "memory");
    write(&o);
    trcxOutClose(&o);
    std::fclose(f);
    std::string result(text, size);
    std::free(text);
    return result;
}

void checkJson(const std::string& text)
{
    json j{text.data(), text.data() + text.size()};
    if (!validUtf8(text) || !j.value()) {
        std::abort();
    }
    j.ws();
    if (j.p != j.end) {
        std::abort();
    }
}

// Every row has the header's number of fields, quoted fields counted whole.
void checkCsv(const std::string& text, size_t fields)
{
    if (!validUtf8(text)) {
        std::abort();
    }
    size_t count = 1;
    bool quoted = false;
    for (char c : text) {
        if (c == '"') {
            quoted = !quoted;
        } else if (!quoted && c == ',') {
            ++count;
        } else if (!quoted && c == '\n') {
            if (count != fields) {
                std::abort();
            }
            count = 1;
        }
    }
    if (quoted) {
        std::abort();
    }
}

void run(int first, int last, long pid)
{
    trcxTrace_t t;
    t.quiet = true;
    std::memset(t.options.mask, 0xFF, sizeof t.options.mask);
    t.options.firstRecord = first;
    t.options.lastRecord = last;
    t.options.pid = pid;
    t.source = tracePath.c_str();
    if (readFile(&t.header, tracePath.c_str(), 1, &t.areaSize) != 0) {
        std::abort();
    }
    trcxPrepare(&t);
    checkJson(capture([&](trcxOut_t* o) { trcxWriteJson(&t, o); }));
    checkCsv(capture([&](trcxOut_t* o) { trcxWriteCsv(&t, o); }), 21);
    const std::vector<trcxStatRow_t> rows = trcxStats(&t, trcxBySelf);
    checkCsv(capture([&](trcxOut_t* o) { trcxWriteStatsCsv(rows, -1, o); }), 8);
    capture([&](trcxOut_t* o) { trcxWriteStatsTable(rows, 5, o); });
    trcxFinish(&t);
    std::free(t.header);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (!prepared) {
        prepare();
    }
    std::vector<uint8_t> bytes(data, data + size);
    if (bytes.size() < TRC_HEADER_SIZE) {
        bytes.resize(TRC_HEADER_SIZE, 0);
    }
    std::memcpy(bytes.data(), TRC_MAGIC, sizeof TRC_MAGIC);
    const int32_t layout = TRC_LAYOUT_ID;
    std::memcpy(bytes.data() + 8, &layout, sizeof layout);
    writeFile(tracePath, bytes.data(), bytes.size());
    run(1, -1, -1);
    run(3, 40, 100);
    return 0;
}
