#include "core/daemon/entry.h"

int main(int argc, char** argv) {
  return VernierLensd_Main(argc, argv);
}
