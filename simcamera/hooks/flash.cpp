#include "hooks/flash.h"

#include "clock/pace.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "clock/clock.h"
#include "clock/inside.h"
#include "world/draw.h"

namespace {
constexpr u32 iMaxContent = 64 * 1024;
constexpr u32 iMaxChanges = 32;

struct TContent {
  u32 dwLength;
  char ac[iMaxContent];
};

// A file whose content is not safe, or one that lost its name.
struct TUnsafeFile {
  u64 qwInode;      // 0: free
  char szPath[96];  // where it was seen last
  bool bWritten;    // its safe content and what it holds now may differ
  bool bGone;       // no name leads to it any more: its last content is what it held
};

// Apart from the records, which are looked through at each change.
struct TUnsafeContent {
  TContent tSafe, tLast;
};

// A name that is not safe: what it led to when it last was, an inode or 0 for nothing.
struct TUnsafeName {
  char szPath[96];  // "" free
  u64 qwSafeInode;
  u32 dwGroup;  // names of one group share their fate
};

struct TFlash {
  u32 bTooMuch;  // more unsafe than fits: a cut would be judged wrongly
  u32 dwGroups;
  TUnsafeName atNames[iMaxChanges];
  TUnsafeFile atFiles[iMaxChanges];
  TUnsafeContent atContents[iMaxChanges];  // by file
};

constinit TFlash* g_ptFlash = nullptr;
pthread_mutex_t g_mutexFlash = PTHREAD_MUTEX_INITIALIZER;

// Round each use of the table.  Locks in a run only, where a library's own threads may come here too.  In a life one
// task runs at a time, and a lock would look to ThreadSanitizer like one of the daemon's own.
class THoldFlash {
 public:
  THoldFlash() {
    if (Pace_IsOn()) pthread_mutex_lock(&g_mutexFlash);
  }
  ~THoldFlash() {
    if (Pace_IsOn()) pthread_mutex_unlock(&g_mutexFlash);
  }
  THoldFlash(const THoldFlash&) = delete;
  THoldFlash& operator=(const THoldFlash&) = delete;

 private:
  TInside m_tInside;
};

enum EFate : u32 { FATE_NEW = 0, FATE_OLD, FATE_TORN, FATES };
}  // namespace

bool Flash_Holds(const char* szPath) {
  return strncmp(szPath, "/etc/", 5) == 0 || strncmp(szPath, "/mnt/", 5) == 0;
}

static TFlash* Map(const char* szRoot) {
  char szPath[512];
  snprintf(szPath, sizeof szPath, "%s/sim/flash", szRoot);
  const i32 fd = static_cast<i32>(syscall(SYS_openat, AT_FDCWD, szPath, O_RDWR | O_CREAT | O_CLOEXEC, 0666));
  void* pv = MAP_FAILED;
  if (fd >= 0 && ftruncate(fd, sizeof(TFlash)) == 0) {
    pv = mmap(nullptr, sizeof(TFlash), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  }
  if (pv == MAP_FAILED) fprintf(stderr, "simcamera: %s: %s\n", szPath, strerror(errno));
  if (fd >= 0) syscall(SYS_close, fd);
  return pv == MAP_FAILED ? nullptr : static_cast<TFlash*>(pv);
}

i32 Flash_Open(const char* szRoot) {
  TInside tInside;
  g_ptFlash = Map(szRoot);
  return g_ptFlash != nullptr ? 0 : -1;
}

static u64 InodeOf(const char* szReal) {
  struct stat tStat;
  return lstat(szReal, &tStat) == 0 && S_ISREG(tStat.st_mode) ? static_cast<u64>(tStat.st_ino) : 0;
}

static void ReadContent(const char* szReal, TContent& tContent) {
  tContent.dwLength = 0;
  const i32 fd = static_cast<i32>(syscall(SYS_openat, AT_FDCWD, szReal, O_RDONLY | O_CLOEXEC));
  if (fd < 0) return;
  ssize_t iRead = 0;
  while ((iRead = syscall(SYS_read, fd, tContent.ac + tContent.dwLength, sizeof tContent.ac - tContent.dwLength)) > 0) {
    tContent.dwLength += static_cast<u32>(iRead);
  }
  syscall(SYS_close, fd);
}

static TUnsafeContent& ContentsOf(const TUnsafeFile& tFile) {
  return g_ptFlash->atContents[&tFile - g_ptFlash->atFiles];
}

static TUnsafeFile* FindFile(u64 qwInode) {
  for (TUnsafeFile& tFile : g_ptFlash->atFiles) {
    if (qwInode != 0 && tFile.qwInode == qwInode) return &tFile;
  }
  return nullptr;
}

// The file's record, made with its present content as the safe one if there is none yet.
static TUnsafeFile* KeepFile(u64 qwInode, const char* szPath, const char* szReal) {
  TUnsafeFile* ptFile = FindFile(qwInode);
  if (ptFile != nullptr) return ptFile;
  for (TUnsafeFile& tFile : g_ptFlash->atFiles) {
    if (tFile.qwInode != 0) continue;
    snprintf(tFile.szPath, sizeof tFile.szPath, "%s", szPath);
    tFile.bGone = false;
    tFile.bWritten = false;
    ReadContent(szReal, ContentsOf(tFile).tSafe);
    tFile.qwInode = qwInode;  // last: a kill before it leaves no half record
    return &tFile;
  }
  g_ptFlash->bTooMuch = 1;
  return nullptr;
}

static TUnsafeName* KeepName(const char* szPath, u64 qwInode) {
  for (TUnsafeName& tName : g_ptFlash->atNames) {
    if (strcmp(tName.szPath, szPath) == 0) return &tName;
  }
  for (TUnsafeName& tName : g_ptFlash->atNames) {
    if (tName.szPath[0] != '\0') continue;
    tName.qwSafeInode = qwInode;
    tName.dwGroup = ++g_ptFlash->dwGroups;
    snprintf(tName.szPath, sizeof tName.szPath, "%s", szPath);
    return &tName;
  }
  g_ptFlash->bTooMuch = 1;
  return nullptr;
}

static void KeepWritten(u64 qwInode, const char* szPath, const char* szReal) {
  if (TUnsafeFile* ptFile = KeepFile(qwInode, szPath, szReal); ptFile != nullptr) ptFile->bWritten = true;
}

void Flash_BeforeWrite(const char* szPath, const char* szReal) {
  if (g_ptFlash == nullptr || !Flash_Holds(szPath)) return;
  const THoldFlash tHold;
  const u64 qwInode = InodeOf(szReal);
  if (qwInode != 0) KeepWritten(qwInode, szPath, szReal);
}

void Flash_AfterCreate(const char* szPath, const char* szReal) {
  if (g_ptFlash == nullptr || !Flash_Holds(szPath)) return;
  const THoldFlash tHold;
  const u64 qwInode = InodeOf(szReal);
  if (qwInode == 0) return;
  KeepName(szPath, 0);
  // The system gives a removed file's inode out again: its record would be taken for the new file's.
  if (TUnsafeFile* ptOld = FindFile(qwInode); ptOld != nullptr && ptOld->bGone) {
    const u64 qwPutAside = qwInode | u64{1} << 63;
    for (TUnsafeName& tName : g_ptFlash->atNames) {
      if (tName.qwSafeInode == qwInode) tName.qwSafeInode = qwPutAside;
    }
    ptOld->qwInode = qwPutAside;
  }
  KeepWritten(qwInode, szPath, szReal);
}

// A name is about to lead nowhere or elsewhere: its file's last content is kept, since the old name may come back.
static TUnsafeName* LoseName(const char* szPath, const char* szReal, bool bFileGoes) {
  const u64 qwInode = InodeOf(szReal);
  TUnsafeName* ptName = KeepName(szPath, qwInode);
  if (qwInode == 0 || !bFileGoes) return ptName;
  TUnsafeFile* ptFile = KeepFile(qwInode, szPath, szReal);
  if (ptFile == nullptr) return ptName;
  ReadContent(szReal, ContentsOf(*ptFile).tLast);
  ptFile->bGone = true;
  return ptName;
}

void Flash_BeforeRename(const char* szFrom, const char* szRealFrom, const char* szTo, const char* szRealTo) {
  if (g_ptFlash == nullptr || !Flash_Holds(szFrom)) return;
  const THoldFlash tHold;
  if (InodeOf(szRealFrom) == 0) return;
  TUnsafeName* ptFrom = LoseName(szFrom, szRealFrom, szTo == nullptr);
  if (szTo == nullptr || !Flash_Holds(szTo)) return;
  TUnsafeName* ptTo = LoseName(szTo, szRealTo, true);
  // From here on the content is found under its new name: it is no safer for having been renamed.
  if (TUnsafeFile* ptFile = FindFile(InodeOf(szRealFrom)); ptFile != nullptr) {
    snprintf(ptFile->szPath, sizeof ptFile->szPath, "%s", szTo);
  }
  if (ptFrom == nullptr || ptTo == nullptr) return;
  const u32 dwMerged = ptFrom->dwGroup;
  for (TUnsafeName& tName : g_ptFlash->atNames) {
    if (tName.dwGroup == dwMerged) tName.dwGroup = ptTo->dwGroup;
  }
}

void Flash_Sync() {
  if (g_ptFlash == nullptr) return;
  const THoldFlash tHold;
  for (TUnsafeName& tName : g_ptFlash->atNames) tName.szPath[0] = '\0';
  for (TUnsafeFile& tFile : g_ptFlash->atFiles) tFile.qwInode = 0;
  g_ptFlash->bTooMuch = 0;
}

// A rename out of a synced folder is safe with it, whole: names of one group are never made safe in part.
static void SyncFolder(const char* szFolder) {
  size_t iFolder = strlen(szFolder);
  while (iFolder > 1 && szFolder[iFolder - 1] == '/') --iFolder;
  for (const TUnsafeName& tName : g_ptFlash->atNames) {
    const char* pszSlash = strrchr(tName.szPath, '/');
    if (pszSlash == nullptr || static_cast<size_t>(pszSlash - tName.szPath) != iFolder) continue;
    if (strncmp(tName.szPath, szFolder, iFolder) != 0) continue;
    const u32 dwGroup = tName.dwGroup;
    for (TUnsafeName& tOther : g_ptFlash->atNames) {
      if (tOther.dwGroup == dwGroup) tOther.szPath[0] = '\0';
    }
  }
}

void Flash_SyncOne(i32 fd, const char* szPath) {
  if (g_ptFlash == nullptr || !Flash_Holds(szPath)) return;
  const THoldFlash tHold;
  struct stat tStat;
  if (fstat(fd, &tStat) != 0) return;
  if (S_ISDIR(tStat.st_mode)) {
    SyncFolder(szPath);
    return;
  }
  // A full flash's descriptor leads to /dev/full, whose inode says nothing here.
  TUnsafeFile* ptFile = S_ISREG(tStat.st_mode) ? FindFile(static_cast<u64>(tStat.st_ino)) : nullptr;
  if (ptFile != nullptr) ptFile->qwInode = 0;
}

// Settles what the file holds from now on, in tLast.  Torn: the head of what was written last, of drawn length, and
// behind it, by draw, what was there before.
static void SettleContent(const TUnsafeFile& tFile, u64& qwState) {
  if (!tFile.bWritten) return;
  const EFate eFate = static_cast<EFate>(Draw_Below(qwState, FATES));
  if (eFate == FATE_NEW) return;
  const TContent& tSafe = ContentsOf(tFile).tSafe;
  TContent& tLast = ContentsOf(tFile).tLast;
  if (eFate == FATE_OLD) {
    tLast = tSafe;
    return;
  }
  const u32 dwHead = Draw_Below(qwState, tLast.dwLength + 1);
  const bool bTail = Draw_Below(qwState, 2) == 0 && tSafe.dwLength > dwHead;
  tLast.dwLength = bTail ? tSafe.dwLength : dwHead;
  if (bTail) memcpy(tLast.ac + dwHead, tSafe.ac + dwHead, tSafe.dwLength - dwHead);
}

// Where a file lies now, below ROOT; "" if no name that was ever unsafe leads to it.
static std::string PresentPath(const char* szRoot, u64 qwInode, const char* szLastSeen) {
  std::string sPath = std::string(szRoot) + szLastSeen;
  if (szLastSeen[0] != '\0' && InodeOf(sPath.c_str()) == qwInode) return sPath;
  for (const TUnsafeName& tName : g_ptFlash->atNames) {
    sPath = std::string(szRoot) + tName.szPath;
    if (tName.szPath[0] != '\0' && InodeOf(sPath.c_str()) == qwInode) return sPath;
  }
  return "";
}

// What ROOT is to be made of: a path, and its content or none for no such file.
struct TOutcome {
  std::string sPath;
  bool bExists;
  std::string sContent;
};

static std::string ContentOf(const char* szRoot, u64 qwInode) {
  if (const TUnsafeFile* ptFile = FindFile(qwInode); ptFile != nullptr) {
    const TContent& tLast = ContentsOf(*ptFile).tLast;
    return std::string(tLast.ac, tLast.dwLength);
  }
  auto ptContent = std::make_unique<TContent>();
  ReadContent(PresentPath(szRoot, qwInode, "").c_str(), *ptContent);
  return std::string(ptContent->ac, ptContent->dwLength);
}

static std::vector<TOutcome> DrawOutcomes(const char* szRoot, u64& qwState) {
  std::vector<TOutcome> atOutcomes;
  for (const TUnsafeFile& tFile : g_ptFlash->atFiles) {
    if (tFile.qwInode == 0) continue;
    const std::string sPath = tFile.bGone ? "" : PresentPath(szRoot, tFile.qwInode, tFile.szPath);
    if (!tFile.bGone) ReadContent(sPath.c_str(), ContentsOf(tFile).tLast);
    SettleContent(tFile, qwState);
    if (!sPath.empty()) atOutcomes.push_back({sPath, true, ContentOf(szRoot, tFile.qwInode)});
  }
  const u64 qwNames = qwState;
  Draw_Below(qwState, 2);
  for (const TUnsafeName& tName : g_ptFlash->atNames) {
    if (tName.szPath[0] == '\0') continue;
    u64 qwGroup = qwNames + tName.dwGroup * qwDrawStep;  // one draw for each group, whatever order they are met in
    if (Draw_Below(qwGroup, 2) == 0) continue;
    const bool bExists = tName.qwSafeInode != 0;
    atOutcomes.push_back(
        {std::string(szRoot) + tName.szPath, bExists, bExists ? ContentOf(szRoot, tName.qwSafeInode) : ""});
  }
  return atOutcomes;
}

// Old names come after the present ones, and so win.
static i32 Apply(const TOutcome& tOutcome) {
  unlink(tOutcome.sPath.c_str());
  if (!tOutcome.bExists) return 0;
  const i32 fd = static_cast<i32>(
      syscall(SYS_openat, AT_FDCWD, tOutcome.sPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (fd < 0) return -1;
  const ssize_t iWritten = syscall(SYS_write, fd, tOutcome.sContent.data(), tOutcome.sContent.size());
  syscall(SYS_close, fd);
  return iWritten == static_cast<ssize_t>(tOutcome.sContent.size()) ? 0 : -1;
}

i32 Flash_PowerCut(const char* szRoot, u64 qwSeed) {
  TInside tInside;
  TFlash* ptBefore = g_ptFlash;
  g_ptFlash = Map(szRoot);
  i32 iResult = g_ptFlash != nullptr && g_ptFlash->bTooMuch == 0 ? 0 : -1;
  if (iResult != 0) fprintf(stderr, "simcamera: more was written without a sync than the flash keeps track of\n");
  if (g_ptFlash != nullptr) {
    u64 qwState = qwSeed;
    for (const TOutcome& tOutcome : DrawOutcomes(szRoot, qwState)) {
      if (Apply(tOutcome) != 0) iResult = -1;
    }
    Flash_Sync();
    munmap(g_ptFlash, sizeof(TFlash));
  }
  g_ptFlash = ptBefore;
  return iResult;
}
