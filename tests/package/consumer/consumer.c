#include <orvel/orv_sdk.h>

int main(int argc, char** argv) {
  int16_t frame[160] = {0};
  void* session;
  int failed =
      argc != 2 || Orv_SDK_GlobalInit(argv[1]) || Orv_SDK_SetModel("orvel-16k.ctl", "wide");
  session = failed ? 0 : Orv_NC_CreateSession(16000, 16000, 10, "wide");
  failed = !session || Orv_NC_CleanAmbientNoiseInt16(session, frame, 160, frame, 160);
  return failed || Orv_NC_CloseSession(session) || Orv_SDK_GlobalDestroy();
}
