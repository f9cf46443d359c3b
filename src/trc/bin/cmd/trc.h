// Types shared by the command functions of the tool.
#ifndef KELVO_TRC_H
#define KELVO_TRC_H

// Code of the recognised command word; also the number of its usage text.
struct trcCommandInfo_t {
    int command;
};

// The command functions: each takes the argument count less one and the
// arguments from the command word on, and returns the exit status. A
// failure is reported and ends the process with status 1.
int mainOn(int count, char** args);
int mainChg(int count, char** args);
int mainOff(int count);
int mainClr(int count, char** args);
int mainDmp(int count, char** args);
// The information report of a trace header.
int mainInf(int count, char** args);
// The format report (usageMessage 5) or the flow report (any other value).
int mainF(int count, char** args, int usageMessage, trcCommandInfo_t* info);
// Prints the web line when info says web_buffer_info (11); 0 otherwise.
int mainWeb(int count, char** args, trcCommandInfo_t* info);
// The web line of the live buffer: 0 when complete, 1 when there is no
// trace or it cannot be read.
int WebBufferInfo();

#endif
