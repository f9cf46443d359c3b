// Numbers of the command line.
#include "trcnumber.h"

#include <cstdlib>

bool trcWholeNumber(const char* text, int32_t* value)
{
    char* end = nullptr;
    const long long number = std::strtoll(text, &end, 0);
    if (number > INT32_MAX) {
        *value = INT32_MAX;
    } else if (number < INT32_MIN) {
        *value = INT32_MIN;
    } else {
        *value = static_cast<int32_t>(number);
    }
    return *end == '\0';
}
