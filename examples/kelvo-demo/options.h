// Command line of kelvo-demo.
#ifndef KELVO_DEMO_OPTIONS_H
#define KELVO_DEMO_OPTIONS_H

namespace demo {

struct Options {
    unsigned threads = 4;  // worker threads
    unsigned calls = 5;    // orders per worker
    bool severe = false;   // lose the ledger on the first order: a severe error
};

enum class ParseResult { run, help, refused };

// Fills options from the command line; help and refusals are printed here.
ParseResult parseOptions(int argc, char** argv, Options& options);

}  // namespace demo

#endif
