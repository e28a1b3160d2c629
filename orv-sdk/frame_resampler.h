#pragma once

/**
 * FrameResampler and ResamplerCache with one of two libraries behind them (ORVEL_RESAMPLER). Both forms
 * have the same public functions.
 */
#if defined(ORVEL_RESAMPLER_SPEEXDSP)
#include "orv-sdk/speexdsp_resampler.h"
#else
#include "orv-sdk/libresample_resampler.h"
#endif
