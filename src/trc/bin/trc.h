// Types shared by the command functions of the tool.
#ifndef KELVO_TRC_H
#define KELVO_TRC_H

// Code of the recognised command word; also the number of its usage text.
struct trcCommandInfo_t {
    int command;
};

#endif
