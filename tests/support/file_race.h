// The environment that preloads file_race_hook.c into the tool, so that the
// name path is taken by another file in the middle of the tool's work (race:
// "file", "link:TARGET" or "replace", as that file says).
#ifndef KELVO_TESTS_FILE_RACE_H
#define KELVO_TESTS_FILE_RACE_H

#include <cstdlib>
#include <string>

#include "run_tool.h"

namespace kelvotest {

inline EnvOverrides fileRace(const std::string& path, const std::string& race)
{
    // A sanitized tool wants its runtime first among the loaded libraries;
    // the hook comes before it and calls through to it.
    const char* asan = std::getenv("ASAN_OPTIONS");
    return {{"LD_PRELOAD", KELVO_FILE_RACE_HOOK},
            {"KELVO_TEST_RACE_PATH", path},
            {"KELVO_TEST_RACE", race},
            {"ASAN_OPTIONS", std::string(asan != nullptr ? asan : "") + ":verify_asan_link_order=0"}};
}

}  // namespace kelvotest

#endif
