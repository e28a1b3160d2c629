#pragma once

// A library that is opened at run time gets the other kinds of thread-local storage from the heap, when a
// thread first touches them: not for frames, and without memory the program ends. This kind is scarce: a
// few words.
#if defined(__ELF__)
#define ORVEL_STATIC_TLS __attribute__((tls_model("initial-exec")))
#else
#define ORVEL_STATIC_TLS
#endif
