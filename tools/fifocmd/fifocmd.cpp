// fifocmd -p FIFO -e XML: sends one event message to the lens daemon, as a camera's other programs do.
#include <arguments.h>

#include <cerrno>
#include <cstring>

#include "courier.h"

namespace {

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

// The library reads the options, as it does for the daemon, which names them in this order.
TCourierSendOptions TakeOptions(const std::string& sFIFO, const std::string& sXML) {
  const char* const apszArgs[] = {"fifocmd", "-p", sFIFO.c_str(), "-e", sXML.c_str()};
  TCourierSendOptions tOptions;
  if (Courier_Util_GetOptions(5, apszArgs, &tOptions) != 0) Cli_RefuseUsage("an option is empty or too long");
  return tOptions;
}

int Run(const std::vector<std::string>& asWords) {
  CLI::App tApp(
      "Sends one event message to the FIFO of the lens daemon and does not wait. Exit status: 0 sent, 1 not.\n"
      "XML is <message>[<channel>N</channel>]EVENT</message>, where EVENT is one of\n"
      "  <autofocus>falling|rising</autofocus>            restore; go to the positions of the backup\n"
      "  <afbutton>pressed|released</afbutton>\n"
      "  <zoominbutton>pressed|released</zoominbutton>\n"
      "  <zoomoutbutton>pressed|released</zoomoutbutton>",
      "fifocmd");
  Arguments_Prepare(tApp);
  std::string sFIFO, sXML;
  tApp.add_option("-p,--fifo", sFIFO, "the daemon's FIFO, as in /tmp/VernierLensFIFO")->required();
  tApp.add_option("-e,--event", sXML, "the XML to send")->required();
  Arguments_Parse(tApp, asWords);
  const TCourierSendOptions tOptions = TakeOptions(sFIFO, sXML);
  if (Courier_Util_SendbyFIFO(&tOptions) != 0) {
    Cli_Fail("cannot send to " + sFIFO + ": " + Failure_Name(errno));
  }
  return 0;
}

}  // namespace

int main(int iCount, char** apszArgs) {
  const int iExit = Arguments_Run("fifocmd", iCount, apszArgs, Run);
  return iExit == iExitUsage ? iExitFailed : iExit;  // scripts of cameras know no other
}
