// The command line of the simulated camera.
#include <cstdio>

#include "cli/cli.h"

namespace {

i32 Cli_Lenses(TArguments asArgs) {
  Arguments_Expect(asArgs, 0, 0, "lenses");
  for (i32 i = 0; const TLensModel* ptModel = Lenses_At(i); ++i) {
    std::printf("%-10s%s\n", ptModel->szName, ptModel->szDescription);
  }
  return 0;
}

struct TCommandRow {
  const char* pszName;
  i32 (*pfnRun)(TArguments);
};

constexpr TCommandRow g_atCommands[] = {
    {"lenses", Cli_Lenses}, {"run", Cli_Run},     {"ask", Cli_Ask},
    {"press", Cli_Press},   {"wait", Cli_Wait},   {"show", Cli_Show},
    {"set", Cli_Set},       {"fault", Cli_Fault}, {"transcript", Cli_Transcript},
    {"speed", Cli_Speed},   {"pause", Cli_Pause}, {"step", Cli_Step},
    {"go", Cli_Go},         {"model", Cli_Model},
};

i32 Dispatch(const TArguments& asArgs) {
  if (!asArgs.empty()) {
    for (const TCommandRow& tRow : g_atCommands) {
      if (asArgs[0] == tRow.pszName) return tRow.pfnRun(TArguments(asArgs.begin() + 1, asArgs.end()));
    }
  }
  Cli_RefuseUsage(
      "usage: simcamera lenses | model | run | ask | press | wait | show | set | fault | transcript | speed | pause | "
      "step | go ...");
}

}  // namespace

int main(int iCount, char** apszArgs) {
  try {
    return Dispatch(TArguments(apszArgs + 1, apszArgs + iCount));
  } catch (const TRefusal& tRefusal) {
    if (!tRefusal.sText.empty()) std::fprintf(stderr, "simcamera: %s\n", tRefusal.sText.c_str());
    return tRefusal.iExit;
  }
}
