// The records that the facility writes of its own: losses, and slots that
// a reader gave up. They carry product 255, event 6 (a text event) and
// component 255; the function tells what happened. kelvo.tfi names them.
#ifndef KELVO_TRCFACREC_H
#define KELVO_TRCFACREC_H

#include <cstdint>

namespace kelvo {

constexpr uint8_t facilityProduct = 255;
constexpr uint8_t facilityEvent = 6;
constexpr uint8_t facilityComponent = 255;
constexpr uint8_t facilityClass = 1;
enum FacilityFunction : uint8_t {
    functionRecordsLost = 1,      // records dropped: held by a reader, or the area full
    functionRecordAbandoned = 2,  // a writer took a slot and did not finish it
    functionRecordsDamaged = 3,   // bytes that no writer of this lap put there
};

}  // namespace kelvo

#endif
