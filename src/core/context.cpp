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

TCurveRow** g_pdwtabTrackingCurveTable = nullptr;
u32* g_pdwtabObjDistTable = nullptr;
TCurveRow** g_pdwtabTempCurveTable = nullptr;
i32* g_pdwtabZoomTempTable = nullptr;
u32* g_pdwtabBaseTempTable = nullptr;
TCurveRow* g_pdwtabRawADCurveTable = nullptr;
i32* g_pdwtabADValueTable = nullptr;
TCurveRow* g_pdwtabIRCurveTable = nullptr;
u32* g_pdwtabWaveLenTable = nullptr;
i32* g_pdwtabICSNightFocusShiftTable = nullptr;
