// Helpers shared by the tests of the TFI reader and the rendering set-up.
#ifndef KELVO_TESTS_TEST_TFI_SUPPORT_H
#define KELVO_TESTS_TEST_TFI_SUPPORT_H

#include "trcrtos.h"
#include "trctfiexc.h"

#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

namespace kelvotest {

// What a trcTfiExc said, as "code|message|file|line" with "@" for the file
// named by at, or "no failure".
template <class F>
std::string failureOf(F f, const std::string& at = {})
{
    try {
        f();
    } catch (const trcTfiExc& e) {
        std::string file = e.file != nullptr ? e.file : "(null)";
        return std::to_string(e.code) + "|" + static_cast<const char*>(e.message) + "|" + (file == at ? "@" : file) +
               "|" + std::to_string(e.line);
    }
    return "no failure";
}

// Sets an environment variable to a value, or removes it for std::nullopt.
inline void setEnv(const char* name, const std::optional<std::string>& value)
{
    if (value)
        ::setenv(name, value->c_str(), 1);
    else
        ::unsetenv(name);
}

// Sets up the rendering on the .tfi files of dir for a trace that carries
// no product versions; trcRecToStrInit's result.
inline int initNames(const std::string& dir)
{
    const char* old = std::getenv("TRCTFIDIR");
    std::optional<std::string> saved = old != nullptr ? std::optional<std::string>(old) : std::nullopt;
    setEnv("TRCTFIDIR", dir);
    trcHeader_t header{};
    for (auto& version : header.prodVersion)
        std::memcpy(version, TRC_NO_VERSION, 8);
    int result = trcRecToStrInit(&header);
    setEnv("TRCTFIDIR", saved);
    return result;
}

}  // namespace kelvotest

#endif
