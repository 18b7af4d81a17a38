// Files, directories and nodes of the camera, below ROOT.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "hooks/flash.h"
#include "hooks/hooks.h"

// Named as text: the headers declare the second only with large file names switched on, and stat twice, as record and
// call.
namespace {
constinit TReal<int(const char*, int, ...)> g_realOpen{"open"};
constinit TReal<FILE*(const char*, const char*)> g_realFopen{"fopen"};
constinit TReal<int(FILE*)> g_realFclose{"fclose"};
constinit TReal<int(const char*, int)> g_realAccess{"access"};
constinit TReal<int(const char*)> g_realRemove{"remove"};
constinit TReal<int(const char*)> g_realUnlink{"unlink"};
constinit TReal<int(const char*, mode_t)> g_realMkfifo{"mkfifo"};
constinit TReal<int(const char*, mode_t)> g_realMkdir{"mkdir"};
constinit TReal<int(const char*, mode_t)> g_realChmod{"chmod"};
constinit TReal<int(const char*, const char*)> g_realRename{"rename"};
constinit TReal<ssize_t(const char*, char*, size_t)> g_realReadlink{"readlink"};
constinit TReal<int(const char*, struct stat*)> g_realStat{"stat"};
constinit TReal<int(const char*, struct stat*)> g_realLstat{"lstat"};
constinit TReal<int(const char*, struct stat64*)> g_realStat64{"stat64"};
constinit TReal<int(const char*, struct stat64*)> g_realLstat64{"lstat64"};
constinit TReal<int(const char*, void*)> g_realStatTime64{"__stat64_time64"};
constinit TReal<int(const char*, void*)> g_realLstatTime64{"__lstat64_time64"};
constinit TReal<DIR*(const char*)> g_realOpendir{"opendir"};
constinit TReal<void()> g_realSync{"sync"};
constinit TReal<int(int)> g_realFsync{"fsync"};
constinit TReal<int(int)> g_realFdatasync{"fdatasync"};

enum EFlashState : u32 { FLASH_GOOD, FLASH_FULL, FLASH_READ_ONLY };
}  // namespace

int Hook_open(const char* pszPath, int iFlags, ...) asm("open");
int Hook_open64(const char* pszPath, int iFlags, ...) asm("open64");
int Hook_open_2(const char* pszPath, int iFlags) asm("__open_2");
int Hook_open64_2(const char* pszPath, int iFlags) asm("__open64_2");
FILE* Hook_fopen(const char* pszPath, const char* pszMode) asm("fopen");
FILE* Hook_fopen64(const char* pszPath, const char* pszMode) asm("fopen64");
int Hook_fclose(FILE* pFile) asm("fclose");
int Hook_access(const char* pszPath, int iMode) asm("access");
int Hook_remove(const char* pszPath) asm("remove");
int Hook_unlink(const char* pszPath) asm("unlink");
int Hook_mkfifo(const char* pszPath, mode_t dwMode) asm("mkfifo");
int Hook_mkdir(const char* pszPath, mode_t dwMode) asm("mkdir");
int Hook_chmod(const char* pszPath, mode_t dwMode) asm("chmod");
int Hook_rename(const char* pszFrom, const char* pszTo) asm("rename");
ssize_t Hook_readlink(const char* pszPath, char* pcTarget, size_t dwRoom) asm("readlink");
ssize_t Hook_readlink_chk(const char* pszPath, char* pcTarget, size_t dwRoom, size_t dwSize) asm("__readlink_chk");
int Hook_stat(const char* pszPath, struct stat* pt) asm("stat");
int Hook_lstat(const char* pszPath, struct stat* pt) asm("lstat");
int Hook_stat64(const char* pszPath, struct stat64* pt) asm("stat64");
int Hook_lstat64(const char* pszPath, struct stat64* pt) asm("lstat64");
int Hook_stat_time64(const char* pszPath, void* pv) asm("__stat64_time64");
int Hook_lstat_time64(const char* pszPath, void* pv) asm("__lstat64_time64");
DIR* Hook_opendir(const char* pszPath) asm("opendir");
void Hook_sync() asm("sync");
int Hook_fsync(int fd) asm("fsync");
int Hook_fdatasync(int fd) asm("fdatasync");

static bool Exists(const char* pszReal) {
  TInside tInside;
  struct stat tStat;
  return lstat(pszReal, &tStat) == 0;
}

// What the flash is like for a path; good for one that does not lie on it.
static EFlashState FlashState(const char* pszPath) {
  if (!Flash_Holds(pszPath)) return FLASH_GOOD;
  if (Word_Load(Clock_World()->bFlashReadOnly) != 0) return FLASH_READ_ONLY;
  return Word_Load(Clock_World()->bFlashFull) != 0 ? FLASH_FULL : FLASH_GOOD;
}

// Refuses a change of a name on a flash that takes none.  szCall as the transcript names it.
static bool RefuseChange(const char* szCall, const char* pszPath) {
  if (FlashState(pszPath) != FLASH_READ_ONLY) return false;
  Transcript_Fact("%s %s = -1 EROFS", szCall, pszPath);
  errno = EROFS;
  return true;
}

// Refuses to open for writing.  A full flash lets files be made and emptied; one that is to be read and written by
// turns is refused at once, since no descriptor reads the file and fails to write it.
static bool RefuseOpen(const char* pszPath, bool bReads, bool bFound) {
  const EFlashState eState = FlashState(pszPath);
  if (!bFound || eState == FLASH_GOOD || (eState == FLASH_FULL && !bReads)) return false;
  Transcript_Fact(eState == FLASH_FULL ? "write %s = -1 ENOSPC" : "write %s = -1 EROFS", pszPath);
  errno = eState == FLASH_FULL ? ENOSPC : EROFS;
  return true;
}

// From now on whatever is written to the descriptor fails with ENOSPC, from within the C library too; its number stays.
static void FillUp(i32 fd) {
  TInside tInside;
  const i32 fdFull = g_realOpen("/dev/full", O_WRONLY | O_CLOEXEC);
  if (fdFull < 0) return;
  dup3(fdFull, fd, (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0 ? O_CLOEXEC : 0);
  close(fdFull);
}

// A file of the camera is open: remembers its descriptor, and says what its opening changed.
static void NoteOpen(i32 fd, const char* pszPath, bool bWritten, bool bExisted) {
  if (bWritten && FlashState(pszPath) == FLASH_FULL) FillUp(fd);
  if (bWritten) Transcript_Fact(bExisted ? "write %s" : "create %s", pszPath);
  TDescriptor* ptDescriptor = Hooks_Descriptor(fd);
  if (ptDescriptor == nullptr) return;
  TInside tInside;
  *ptDescriptor = {.eKind = DESCRIPTOR_FILE,
                   .eDevice = DEVICE_FOCUS_MOTOR,
                   .bWritten = bWritten,
                   .szPath = "",
                   .pfnClosed = nullptr};
  snprintf(ptDescriptor->szPath, sizeof ptDescriptor->szPath, "%s", pszPath);
}

static i32 Open(const char* pszPath, i32 iFlags, mode_t dwMode) {
  ELensDevice eDevice;
  if (Device_Find(pszPath, &eDevice)) {
    Hooks_Point("open");
    return Device_Open(eDevice, pszPath, iFlags);
  }
  const TCameraPath tPath(pszPath);
  if (!tPath.bOurs) {
    if (!Hooks_Fails("open")) return g_realOpen(pszPath, iFlags, dwMode);
    errno = EACCES;
    return -1;
  }
  Hooks_Point("open");
  const bool bExisted = Exists(tPath.szReal);
  const bool bWritten = (iFlags & O_ACCMODE) != O_RDONLY && (iFlags & O_PATH) == 0;
  const bool bReads = (iFlags & O_ACCMODE) == O_RDWR;
  if (bWritten && RefuseOpen(pszPath, bReads, bExisted || (iFlags & O_CREAT) != 0)) return -1;
  if (bWritten) Flash_BeforeWrite(pszPath, tPath.szReal);
  const i32 fd = g_realOpen(tPath.szReal, iFlags, dwMode);
  if (fd < 0) return fd;
  if (bWritten && !bExisted) Flash_AfterCreate(pszPath, tPath.szReal);
  NoteOpen(fd, pszPath, bWritten, bExisted);
  return fd;
}

static mode_t ModeOf(i32 iFlags, va_list tArgs) {
  const bool bMode = (iFlags & O_CREAT) != 0 || (iFlags & O_TMPFILE) == O_TMPFILE;
  return bMode ? static_cast<mode_t>(va_arg(tArgs, int)) : 0;
}

int Hook_open(const char* pszPath, int iFlags, ...) {
  va_list tArgs;
  va_start(tArgs, iFlags);
  const mode_t dwMode = ModeOf(iFlags, tArgs);
  va_end(tArgs);
  return Open(pszPath, iFlags, dwMode);
}

int Hook_open64(const char* pszPath, int iFlags, ...) {
  va_list tArgs;
  va_start(tArgs, iFlags);
  const mode_t dwMode = ModeOf(iFlags, tArgs);
  va_end(tArgs);
  return Open(pszPath, iFlags | O_LARGEFILE, dwMode);
}

int Hook_open_2(const char* pszPath, int iFlags) {
  return Open(pszPath, iFlags, 0);
}
int Hook_open64_2(const char* pszPath, int iFlags) {
  return Open(pszPath, iFlags | O_LARGEFILE, 0);
}

FILE* Hook_fopen(const char* pszPath, const char* pszMode) {
  const TCameraPath tPath(pszPath);
  if (!tPath.bOurs) return g_realFopen(pszPath, pszMode);
  Hooks_Point("fopen");
  const bool bExisted = Exists(tPath.szReal);
  const bool bBoth = strchr(pszMode, '+') != nullptr;
  const bool bWritten = pszMode[0] != 'r' || bBoth;
  if (bWritten && RefuseOpen(pszPath, bBoth, bExisted || pszMode[0] != 'r')) return nullptr;
  if (bWritten) Flash_BeforeWrite(pszPath, tPath.szReal);
  FILE* pFile = g_realFopen(tPath.szReal, pszMode);
  if (pFile == nullptr) return nullptr;
  if (bWritten && !bExisted) Flash_AfterCreate(pszPath, tPath.szReal);
  NoteOpen(fileno(pFile), pszPath, bWritten, bExisted);
  return pFile;
}

FILE* Hook_fopen64(const char* pszPath, const char* pszMode) {
  return Hook_fopen(pszPath, pszMode);
}

int Hook_fclose(FILE* pFile) {
  TDescriptor* ptDescriptor = Hooks_Active() ? Hooks_Descriptor(fileno(pFile)) : nullptr;
  if (ptDescriptor == nullptr || ptDescriptor->eKind == DESCRIPTOR_FOREIGN) return g_realFclose(pFile);
  Hooks_Point("fclose");
  const TDescriptor tClosed = *ptDescriptor;
  *ptDescriptor = {};
  // What the stream still holds is written now.
  if (tClosed.bWritten && FlashState(tClosed.szPath) == FLASH_FULL) FillUp(fileno(pFile));
  const i32 iResult = g_realFclose(pFile);
  if (tClosed.bWritten) Transcript_Fact(iResult == 0 ? "close %s" : "close %s = -1", tClosed.szPath);
  return iResult;
}

int Hook_access(const char* pszPath, int iMode) {
  const TCameraPath tPath(pszPath);
  if (!tPath.bOurs) return g_realAccess(pszPath, iMode);
  Hooks_Point("access");
  if ((iMode & W_OK) != 0 && Exists(tPath.szReal) && RefuseChange("access", pszPath)) return -1;
  return g_realAccess(tPath.szReal, iMode);
}

static i32 Remove(const char* szCall, TReal<int(const char*)>& tReal, const char* pszPath) {
  const TCameraPath tPath(pszPath);
  if (!tPath.bOurs) return tReal(pszPath);
  Hooks_Point(szCall);
  if (RefuseChange("remove", pszPath)) return -1;
  Flash_BeforeRename(pszPath, tPath.szReal, nullptr, nullptr);
  const i32 iResult = tReal(tPath.szReal);
  if (iResult == 0) Transcript_Fact("remove %s", pszPath);
  return iResult;
}

int Hook_remove(const char* pszPath) {
  return Remove("remove", g_realRemove, pszPath);
}
int Hook_unlink(const char* pszPath) {
  return Remove("unlink", g_realUnlink, pszPath);
}

static i32 Make(const char* szCall, TReal<int(const char*, mode_t)>& tReal, const char* pszPath, mode_t dwMode) {
  const TCameraPath tPath(pszPath);
  if (!tPath.bOurs) return tReal(pszPath, dwMode);
  Hooks_Point(szCall);
  if (RefuseChange(szCall, pszPath)) return -1;
  if (Hooks_Fails(szCall)) {
    errno = EACCES;
    return -1;
  }
  const i32 iResult = tReal(tPath.szReal, dwMode);
  if (iResult == 0) Transcript_Fact("%s %s", szCall, pszPath);
  return iResult;
}

int Hook_mkfifo(const char* pszPath, mode_t dwMode) {
  return Make("mkfifo", g_realMkfifo, pszPath, dwMode);
}
int Hook_mkdir(const char* pszPath, mode_t dwMode) {
  return Make("mkdir", g_realMkdir, pszPath, dwMode);
}
int Hook_chmod(const char* pszPath, mode_t dwMode) {
  return Make("chmod", g_realChmod, pszPath, dwMode);
}

int Hook_rename(const char* pszFrom, const char* pszTo) {
  const TCameraPath tFrom(pszFrom);
  const TCameraPath tTo(pszTo);
  if (!tFrom.bOurs && !tTo.bOurs) return g_realRename(pszFrom, pszTo);
  Hooks_Point("rename");
  if (RefuseChange("rename", pszFrom) || RefuseChange("rename", pszTo)) return -1;
  if (tFrom.bOurs && tTo.bOurs) Flash_BeforeRename(pszFrom, tFrom.szReal, pszTo, tTo.szReal);
  const i32 iResult = g_realRename(tFrom.bOurs ? tFrom.szReal : pszFrom, tTo.bOurs ? tTo.szReal : pszTo);
  if (iResult == 0) Transcript_Fact("rename %s %s", pszFrom, pszTo);
  return iResult;
}

ssize_t Hook_readlink(const char* pszPath, char* pcTarget, size_t dwRoom) {
  const TCameraPath tPath(pszPath);
  if (!tPath.bOurs) return g_realReadlink(pszPath, pcTarget, dwRoom);
  Hooks_Point("readlink");
  return g_realReadlink(tPath.szReal, pcTarget, dwRoom);
}

ssize_t Hook_readlink_chk(const char* pszPath, char* pcTarget, size_t dwRoom, size_t dwSize) {
  if (dwSize < dwRoom) __builtin_trap();
  return Hook_readlink(pszPath, pcTarget, dwRoom);
}

template <class TStat>
static i32 Stat(const char* szCall, TReal<int(const char*, TStat*)>& tReal, const char* pszPath, TStat* pt) {
  const TCameraPath tPath(pszPath);
  if (!tPath.bOurs) return tReal(pszPath, pt);
  Hooks_Point(szCall);
  return tReal(tPath.szReal, pt);
}

int Hook_stat(const char* pszPath, struct stat* pt) {
  return Stat("stat", g_realStat, pszPath, pt);
}
int Hook_lstat(const char* pszPath, struct stat* pt) {
  return Stat("lstat", g_realLstat, pszPath, pt);
}
int Hook_stat64(const char* pszPath, struct stat64* pt) {
  return Stat("stat64", g_realStat64, pszPath, pt);
}
int Hook_lstat64(const char* pszPath, struct stat64* pt) {
  return Stat("lstat64", g_realLstat64, pszPath, pt);
}

int Hook_stat_time64(const char* pszPath, void* pv) {
  return Stat("stat", g_realStatTime64, pszPath, pv);
}
int Hook_lstat_time64(const char* pszPath, void* pv) {
  return Stat("lstat", g_realLstatTime64, pszPath, pv);
}

DIR* Hook_opendir(const char* pszPath) {
  const TCameraPath tPath(pszPath);
  if (!tPath.bOurs) return g_realOpendir(pszPath);
  Hooks_Point("opendir");
  return g_realOpendir(tPath.szReal);
}

// On a slow flash a sync takes a drawn time, and only at its end is anything safe.
static void WaitForFlash() {
  const u32 dwMost_us = Clock_World()->dwSlowestSync_us;
  if (dwMost_us == 0 || !Hooks_OnVirtualClock("sync")) return;
  const u64 qwUntil_us = Clock_Now_us() + Clock_Draw(dwMost_us);
  while (Clock_Now_us() < qwUntil_us) Clock_Wait({.qwUntil_us = qwUntil_us});
}

// The machine's own disks are left alone: only the camera's flash is synced.
void Hook_sync() {
  if (!Hooks_Active()) return g_realSync();
  Hooks_Point("sync");
  WaitForFlash();
  Flash_Sync();
  Transcript_Fact("sync");
}

static i32 SyncOne(const char* szCall, TReal<int(int)>& tReal, i32 fd) {
  const TDescriptor* ptDescriptor = Hooks_Active() ? Hooks_Descriptor(fd) : nullptr;
  if (ptDescriptor == nullptr || ptDescriptor->eKind != DESCRIPTOR_FILE) return tReal(fd);
  Hooks_Point(szCall);
  WaitForFlash();
  Flash_SyncOne(fd, ptDescriptor->szPath);
  Transcript_Fact("fsync %s", ptDescriptor->szPath);
  return 0;
}

int Hook_fsync(int fd) {
  return SyncOne("fsync", g_realFsync, fd);
}
int Hook_fdatasync(int fd) {
  return SyncOne("fdatasync", g_realFdatasync, fd);
}
