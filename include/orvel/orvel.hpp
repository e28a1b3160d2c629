/*
 * ORVEL for C++20: the functions of orv_sdk.h and orv_sdk_ext.h as types that clean up after
 * themselves. Header-only; link with the library. A recording cleaned in blocks of any length:
 *
 *   orvel::Library library("/usr/local/share/orvel/models");
 *   library.loadModel("orvel-32k.ctl");
 *   orvel::StreamCleaner cleaner(library, {.rate = 48000, .channels = 2});
 *   std::vector<float> block(2 * 1000);             // interleaved, full scale +/-1.0
 *   while (readBlock(block)) {
 *     cleaner.process(block, block);                // as many samples out as in
 *     writeBlock(block);                            // late by cleaner.latency() samples
 *   }
 *   std::vector<float> tail(2 * cleaner.latency());
 *   cleaner.flush(tail);
 *
 * Types: Library loads models. StreamCleaner and VoiceDetector take blocks of any length and channel
 * count. Cleaner and Detector are the library's own sessions: mono, whole frames of 10 to 40 ms.
 *
 * Units: rates are in Hz, one of kSampleRates everywhere; a frame is what a session takes at once; lengths
 * and latencies of streams are in samples of one channel.
 *
 * Lifetime: objects can be moved and not copied. Each cleaner and detector keeps its library's models
 * alive, so they may be destroyed in any order. A moved-from object can be destroyed or assigned to.
 *
 * Threads: Library may be used from any thread, also by several at once. Each other object may be used
 * by one thread at a time; different objects are independent.
 *
 * Real time: process, flush, reset, setAttenuationLimit and the functions that are noexcept allocate
 * no memory, take no lock and make no system call when they succeed. Everything else may.
 *
 * Errors: Error, with the library's own words; arguments that do not fit are named with what was
 * expected. A call that throws has changed nothing, unless it says otherwise. Memory that runs out in
 * this header is std::bad_alloc.
 */
#ifndef ORVEL_ORVEL_HPP
#define ORVEL_ORVEL_HPP

#include "orvel/orvel_library.hpp"
#include "orvel/orvel_session.hpp"
#include "orvel/orvel_stream.hpp"

#endif  // ORVEL_ORVEL_HPP
