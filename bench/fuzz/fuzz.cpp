#include "fuzz.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>

namespace {

std::map<std::string, std::string> g_mapFiles;
std::map<u32, i32> g_mapAnswers;

bool IsOfCamera(std::string_view sPath) {
  return sPath.starts_with("/etc/conf.d/") || sPath.starts_with("/mnt/flash/");
}

std::string* Files_Find(const char* pszPath) {
  const auto it = g_mapFiles.find(pszPath);
  if (it != g_mapFiles.end()) return &it->second;
  errno = ENOENT;
  return nullptr;
}

}  // namespace

// The linker sends these calls here.  Those that are not for the camera, as the fuzzer's own, go on to the C library.
extern "C" {
int LLVMFuzzerInitialize(int* piArguments, char*** papszArguments);
int __real_open(const char* pszPath, int iFlags, ...);
int __real_access(const char* pszPath, int iMode);
int __real_poll(pollfd* ptPolls, nfds_t dwPolls, int iTimeOut_ms);

// The daemon's output is formatted, so that the sanitizers see it, and then thrown away.
int LLVMFuzzerInitialize(int*, char***) {
  return std::freopen("/dev/null", "w", stdout) == nullptr ? 1 : 0;
}

int __wrap_open(const char* pszPath, int iFlags, ...) {
  va_list vaMode;
  va_start(vaMode, iFlags);
  const mode_t dwMode = (iFlags & O_CREAT) != 0 ? va_arg(vaMode, mode_t) : 0;
  va_end(vaMode);
  if (!IsOfCamera(pszPath)) return __real_open(pszPath, iFlags, dwMode);
  if ((iFlags & O_ACCMODE) != O_RDONLY) return __real_open("/dev/null", O_WRONLY);
  const std::string* psText = Files_Find(pszPath);
  if (psText == nullptr) return -1;
  const int fd = memfd_create("input", MFD_CLOEXEC);
  const bool bWritten = write(fd, psText->data(), psText->size()) == static_cast<ssize_t>(psText->size());
  Check(bWritten && lseek(fd, 0, SEEK_SET) == 0, "the input fits into a file in memory");
  return fd;
}

int __wrap_access(const char* pszPath, int iMode) {
  if (!IsOfCamera(pszPath)) return __real_access(pszPath, iMode);
  return Files_Find(pszPath) == nullptr ? -1 : 0;
}

int __wrap_ioctl(int, unsigned long dwRequest, ...) {
  const auto it = g_mapAnswers.find(static_cast<u32>(dwRequest));
  return it == g_mapAnswers.end() ? -1 : it->second;
}

// Never waits: data that is not there yet never comes.
int __wrap_poll(pollfd* ptPolls, nfds_t dwPolls, int) {
  return __real_poll(ptPolls, dwPolls, 0);
}

void __wrap_sync() {}
}

void Check(bool bHolds, const char* szRule) {
  if (bHolds) return;
  std::fprintf(stderr, "does not hold: %s\n", szRule);
  std::abort();
}

std::string_view Input_Text(const u8* pbyInput, std::size_t dwInput) {
  return {reinterpret_cast<const char*>(pbyInput), dwInput};
}

u32 Input_Choose(std::string_view& sInput, u32 dwChoices) {
  if (sInput.empty()) return 0;
  const u32 dwByte = static_cast<u8>(static_cast<u8>(sInput.front()) - u8{'@'});
  sInput.remove_prefix(1);
  return dwByte % dwChoices;
}

std::vector<std::string> Fields(std::string_view sText, char cSeparator) {
  std::vector<std::string> asFields(1);
  for (const char c : sText) {
    if (c == cSeparator) {
      asFields.emplace_back();
    } else {
      asFields.back() += c;
    }
  }
  return asFields;
}

std::vector<std::string> Words(std::string_view sText) {
  std::string sBlanked(sText);
  for (char& c : sBlanked) c = std::isspace(static_cast<u8>(c)) != 0 ? ' ' : c;
  std::vector<std::string> asWords = Fields(sBlanked, ' ');
  std::erase(asWords, "");
  return asWords;
}

void Files_Put(const std::string& sPath, std::string_view sText) {
  g_mapFiles[sPath] = sText;
}

void Files_Clear() {
  g_mapFiles.clear();
}

void Driver_Answer(u32 dwRequest, i32 iAnswer) {
  g_mapAnswers[dwRequest] = iAnswer;
}
