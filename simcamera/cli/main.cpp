// The command line of the simulated camera.
#include <arguments.h>

#include "cli/commands.h"

int main(int iCount, char** apszArgs) {
  return Arguments_Run("simcamera", iCount, apszArgs, Commands_Do);
}
