#include "core/context.h"

TVernierLensdConfigInfo g_tVernierLensdConfigInfo = {};

std::atomic<u32> g_bTerminated = 0;
std::atomic<u32> g_bRunThread = 1;
std::atomic<u32> g_bIrisFullyOpenStatus = 0;
std::atomic<u32> g_dwFocusDefault = 0;

pthread_mutex_t gICSMutex = PTHREAD_MUTEX_INITIALIZER;

u32* g_pdwtabFocusValueTable = nullptr;
u32* g_pdwtabFocusPanTable = nullptr;
i32* g_pdwtabFocusShiftTable = nullptr;
u32* g_pdwtabFocusingStartTable = nullptr;
