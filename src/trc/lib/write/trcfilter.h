// Which records a trace takes: its mask and its process, thread, companion
// process and object filters, and the crash and pause masks.
#ifndef KELVO_TRCFILTER_H
#define KELVO_TRCFILTER_H

#include <kelvo/trcformat.h>

#include "trcrecsource.h"

#include <cstdint>

namespace kelvo {

// The trace mask or the pause mask: map n tests identifier n.
bool maskSelects(const uint8_t* mask, const RecordIds& ids);
// The crash mask leaves out the product: its maps 0 to 4 test event,
// component, class, function and trace point.
bool crashMaskSelects(const uint8_t* mask, const RecordIds& ids);
// Mask and filters of the header, read while writers may change them.
bool traceTakes(const trcHeader_t& header, const RecordIds& ids, uint32_t thisPointer);

// True when the header's mask selects everything and no filter is set, so
// that writers need not test a record at all.
bool takesEverything(const trcHeader_t& header);

}  // namespace kelvo

#endif
