// System V shared memory, as files ROOT/shm/N that image side and command line map as well; N is the key's project
// number. The kernel's own segments are the machine's, and would outlive the camera.
#include <errno.h>
#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "hooks/hooks.h"
#include "world/world_image.h"

namespace {
constinit TReal<key_t(const char*, int)> g_realFtok{"ftok"};
constinit TReal<int(key_t, size_t, int)> g_realShmget{"shmget"};
constinit TReal<void*(int, const void*, int)> g_realShmat{"shmat"};
constinit TReal<int(const void*)> g_realShmdt{"shmdt"};

constexpr key_t iKeyBase = 0x4C530000;  // ours end in the project number
constexpr i32 iIdBase = 0x4C530000;
constexpr i32 iMaxAttached = 32;

struct TAttached {
  i32 iNumber;
  void* pv;
  size_t qwSize;
};
constinit TAttached g_atAttached[iMaxAttached]{};
}  // namespace

key_t Hook_ftok(const char* pszPath, int iProject) asm("ftok");
int Hook_shmget(key_t iKey, size_t qwSize, int iFlags) asm("shmget");
void* Hook_shmat(int iId, const void* pvAddress, int iFlags) asm("shmat");
int Hook_shmdt(const void* pvAddress) asm("shmdt");

key_t Hook_ftok(const char* pszPath, int iProject) {
  const TCameraPath tPath(pszPath);
  if (!tPath.bOurs) return g_realFtok(pszPath, iProject);
  Hooks_Point("ftok");
  struct stat tStat;
  if (stat(tPath.szReal, &tStat) != 0) return -1;
  return iKeyBase | (iProject & 0xFF);
}

static void BlockPath(char (&szPath)[sizeof g_szHooksRoot + 32], i32 iNumber) {
  snprintf(szPath, sizeof szPath, "%s/shm/%d", g_szHooksRoot, iNumber);
}

static i32 GrowTo(i32 fd, size_t qwSize) {
  struct stat tStat;
  if (fstat(fd, &tStat) != 0) return -1;
  return static_cast<size_t>(tStat.st_size) < qwSize ? ftruncate(fd, static_cast<off_t>(qwSize)) : 0;
}

int Hook_shmget(key_t iKey, size_t qwSize, int iFlags) {
  if (!Hooks_Active() || (iKey & ~0xFF) != iKeyBase) return g_realShmget(iKey, qwSize, iFlags);
  Hooks_Point("shmget");
  TInside tInside;
  char szPath[sizeof g_szHooksRoot + 32];
  BlockPath(szPath, iKey & 0xFF);
  const i32 iCreate = (iFlags & IPC_CREAT) != 0 ? O_CREAT : 0;
  const i32 fd = open(szPath, O_RDWR | O_CLOEXEC | iCreate, 0666);
  if (fd < 0) return -1;
  const i32 iGrown = GrowTo(fd, qwSize);
  close(fd);
  return iGrown < 0 ? -1 : iIdBase | (iKey & 0xFF);
}

// The positions in a block are the daemon's from here on.
static void TellHolder(i32 iNumber) {
  if (!g_bPaced || iNumber >= iLensChannels) return;
  TWorld* ptWorld = Clock_World();
  World_Lock(ptWorld);
  ptWorld->aiBlockHolder[iNumber] = static_cast<i32>(syscall(SYS_getpid));
  World_Unlock(ptWorld);
}

void* Hook_shmat(int iId, const void* pvAddress, int iFlags) {
  if (!Hooks_Active() || (iId & ~0xFF) != iIdBase) return g_realShmat(iId, pvAddress, iFlags);
  Hooks_Point("shmat");
  TInside tInside;
  char szPath[sizeof g_szHooksRoot + 32];
  BlockPath(szPath, iId & 0xFF);
  const i32 fd = open(szPath, O_RDWR | O_CLOEXEC);
  if (fd < 0) return reinterpret_cast<void*>(-1);
  struct stat tStat;
  void* pv = MAP_FAILED;
  if (fstat(fd, &tStat) == 0) {
    pv = mmap(nullptr, static_cast<size_t>(tStat.st_size), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  }
  close(fd);
  TellHolder(iId & 0xFF);
  for (TAttached& tAttached : g_atAttached) {
    if (pv == MAP_FAILED || tAttached.pv != nullptr) continue;
    tAttached = {.iNumber = iId & 0xFF, .pv = pv, .qwSize = static_cast<size_t>(tStat.st_size)};
    return pv;
  }
  return reinterpret_cast<void*>(-1);
}

int Hook_shmdt(const void* pvAddress) {
  for (TAttached& tAttached : g_atAttached) {
    if (!Hooks_Active() || pvAddress == nullptr || tAttached.pv != pvAddress) continue;
    Hooks_Point("shmdt");
    if (Hooks_Fails("shmdt")) {
      errno = EINVAL;
      return -1;
    }
    TInside tInside;
    const TAttached tGone = tAttached;
    tAttached = {};
    return munmap(tGone.pv, tGone.qwSize);
  }
  return g_realShmdt(pvAddress);
}

u32* Memory_Block(i32 iNumber) {
  for (const TAttached& tAttached : g_atAttached) {
    if (tAttached.pv != nullptr && tAttached.iNumber == iNumber) return static_cast<u32*>(tAttached.pv);
  }
  return nullptr;
}

void Memory_ImageSide(void* pvWorld) {
  TWorld* ptWorld = static_cast<TWorld*>(pvWorld);
  for (i32 iChannel = 0; iChannel < iLensChannels; ++iChannel) {
    u32* pdwBlock = Memory_Block(iChannel);
    if (pdwBlock == nullptr) continue;
    const bool bWanted =
        Word_Load(pdwBlock[BLOCK_FOCUS_VALUE_WANTED]) != 0 || Word_Load(pdwBlock[BLOCK_IRIS_PENDING]) != 0;
    if (bWanted || Word_Load(pdwBlock[BLOCK_DAY_NIGHT_MODE]) != ptWorld->bNight) {
      World_ImageFrame(ptWorld, iChannel, pdwBlock);
    }
  }
}
