// Marks the operations that libkelvo.so exports; everything else is hidden.
#ifndef KELVO_TRCEXPORT_H
#define KELVO_TRCEXPORT_H

#define KELVO_EXPORT __attribute__((visibility("default")))

#endif
