// The failures that the TFI string raises without knowing the exception
// type, which itself holds TFI strings.
#ifndef KELVO_TRCTFIFAIL_H
#define KELVO_TRCTFIFAIL_H

// Throws the reader's exception for a failed allocation.
[[noreturn]] void trcTfiOutOfMemory();

#endif
