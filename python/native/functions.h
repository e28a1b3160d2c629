/* The C interface as a table of functions, so that one extension works with any build of the library. */
#pragma once

#include <memory>
#include <string>

#include "orvel/orv_sdk.h"
#include "orvel/orv_sdk_ext.h"

namespace orvel::python {

// clang-format off
#define ORVEL_PYTHON_FUNCTIONS(X)                                                                \
  X(Orv_SDK_GetVersion) X(Orv_Context_Create) X(Orv_Context_Destroy) X(Orv_Context_SetModel)     \
  X(Orv_Context_SetModelFromMemory) X(Orv_Context_CreateCleaner) X(Orv_Context_CreateDetector)   \
  X(Orv_Context_SetMessageHandler) X(Orv_Context_LastError) X(Orv_Context_GetModelInfo)          \
  X(Orv_NC_CleanAmbientNoiseFloat) X(Orv_NC_CleanBatchFloat) X(Orv_NC_GetLatency)                \
  X(Orv_NC_SetAttenuationLimit) X(Orv_NC_ResetSession) X(Orv_NC_CloseSession)                    \
  X(Orv_Session_GetStatistics) X(Orv_VAD_ProcessFloat) X(Orv_VAD_ResetSession)                   \
  X(Orv_VAD_CloseSession)
// clang-format on

struct Functions {
#define ORVEL_PYTHON_MEMBER(name) decltype(&::name) name = nullptr;
  ORVEL_PYTHON_FUNCTIONS(ORVEL_PYTHON_MEMBER)
#undef ORVEL_PYTHON_MEMBER
};

/**
 * The functions of a shared library, which stays loaded; "" is the library inside the extension.
 *
 * @throws std::runtime_error when the file cannot be loaded or lacks a function, or when there is no
 *         library inside.
 */
Functions loadFunctions(const std::string& file);

/** Whether a library is linked into the extension. */
bool hasLibraryInside() noexcept;

}  // namespace orvel::python
