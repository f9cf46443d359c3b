// Helpers shared by the tests of the TFI reader and the rendering set-up.
#ifndef KELVO_TESTS_TEST_TFI_SUPPORT_H
#define KELVO_TESTS_TEST_TFI_SUPPORT_H

#include "trctfiexc.h"

#include <cstdlib>
#include <optional>
#include <string>
#include <unistd.h>

namespace tfitest {

// What a trcTfiExc said, as "code|message|file|line", or "no failure".
template <class F> std::string failureOf(F f)
{
    try {
        f();
    } catch (const trcTfiExc& e) {
        return std::to_string(e.code) + "|" + static_cast<const char*>(e.message) + "|" +
               (e.file != nullptr ? e.file : "(null)") + "|" + std::to_string(e.line);
    }
    return "no failure";
}

// Sets or removes an environment variable for the life of the object.
class EnvGuard {
public:
    EnvGuard(const char* name, std::optional<std::string> value) : name_(name)
    {
        if (const char* old = std::getenv(name))
            old_ = old;
        if (value)
            ::setenv(name, value->c_str(), 1);
        else
            ::unsetenv(name);
    }
    ~EnvGuard()
    {
        if (old_)
            ::setenv(name_, old_->c_str(), 1);
        else
            ::unsetenv(name_);
    }
    EnvGuard(const EnvGuard&) = delete;
    EnvGuard& operator=(const EnvGuard&) = delete;

private:
    const char* name_;
    std::optional<std::string> old_;
};

// Changes the working directory for the life of the object.
class CwdGuard {
public:
    explicit CwdGuard(const std::string& dir)
    {
        char buffer[4096];
        if (::getcwd(buffer, sizeof buffer) != nullptr)
            old_ = buffer;
        if (::chdir(dir.c_str()) != 0)
            std::abort();
    }
    ~CwdGuard()
    {
        if (!old_.empty() && ::chdir(old_.c_str()) != 0)
            std::abort();
    }
    CwdGuard(const CwdGuard&) = delete;
    CwdGuard& operator=(const CwdGuard&) = delete;

private:
    std::string old_;
};

} // namespace tfitest

#endif
