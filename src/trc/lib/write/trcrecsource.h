// A record as a writer hands it over, before it has a place: its six
// identifiers, its object and its data.
#ifndef KELVO_TRCRECSOURCE_H
#define KELVO_TRCRECSOURCE_H

#include <cstdint>

namespace kelvo {

// The six identifier bytes of a record in mask order.
struct RecordIds {
    uint8_t id[6];
};

struct RecordSource {
    RecordIds ids;
    uint32_t thisPointer;
    const uint8_t* data;
    uint32_t length;
};

}  // namespace kelvo

#endif
