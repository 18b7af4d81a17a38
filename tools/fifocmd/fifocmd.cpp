// fifocmd -p FIFO -e XML: sends one event message to the lens daemon, as a camera's other programs do.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "courier.h"

namespace {

constexpr const char* g_pszUsage = "usage: fifocmd -p FIFO -e XML";

void Usage_Print() {
  std::puts(g_pszUsage);
  std::puts(
      "Sends one event message to the FIFO of the lens daemon and does not wait.  XML is\n"
      "  <message>[<channel>N</channel>]EVENT</message>\n"
      "where EVENT is one of\n"
      "  <autofocus>falling|rising</autofocus>            restore; go to the positions of the backup\n"
      "  <afbutton>pressed|released</afbutton>\n"
      "  <zoominbutton>pressed|released</zoominbutton>\n"
      "  <zoomoutbutton>pressed|released</zoomoutbutton>");
}

const char* Failure_Name(int iError) {
  switch (iError) {
    case ENXIO:
    case EPIPE:
      return "nobody reads it";
    case EAGAIN:
      return "it is full";
    case EINVAL:
      return "it is no FIFO";
    default:
      return std::strerror(iError);
  }
}

}  // namespace

int main(int iCount, char** apszArgs) {
  if (iCount == 2 && std::strcmp(apszArgs[1], "-h") == 0) {
    Usage_Print();
    return 0;
  }
  TCourierSendOptions tOptions;
  if (Courier_Util_GetOptions(iCount, apszArgs, &tOptions) != 0) {
    std::fprintf(stderr, "fifocmd: an option is missing, unknown, empty or too long; %s\n", g_pszUsage);
    return 1;
  }
  if (Courier_Util_SendbyFIFO(&tOptions) != 0) {
    std::fprintf(stderr, "fifocmd: cannot send to %s: %s\n", tOptions.szFIFO, Failure_Name(errno));
    return 1;
  }
  return 0;
}
