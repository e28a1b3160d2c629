/* Cleans mono floats at 16 kHz: clean_c MODEL.ctl < IN > OUT. */
#include <orvel/orv_sdk_ext.h>
#include <stdio.h>

int main(int argc, char** argv) {
  float frame[160] = {0}; /* 10 ms */
  void* context = Orv_Context_Create(NULL);
  int failed = Orv_Context_SetModel(context, argv[argc - 1], "model");
  void* session = failed ? NULL : Orv_Context_CreateCleaner(context, 16000, 16000, 10, "model");
  for (size_t count; session && !failed && (count = fread(frame, 4, 160, stdin)) > 0;)
    failed = Orv_NC_CleanAmbientNoiseFloat(session, frame, 160, frame, 160) ||
             fwrite(frame, 4, count, stdout) != count;
  if (failed || !session) fprintf(stderr, "%s\n", Orv_Context_LastError(context));
  return Orv_Context_Destroy(context) || failed || !session;
}
