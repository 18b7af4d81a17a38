// The query language of clients, as in "function=zoom&direction=forward&steps=3".
//
// Tokens go from left to right; every word is compared by its own length only, so what follows it is ignored.  A
// "channel" token chooses the command that the tokens behind it fill, so a channel is named before its function.  Main
// thread.
#pragma once

#include "core/context.h"

// Parses pszQuery into ptRequest, which the caller has zeroed.  pszQuery is not changed; iCurChannel takes the last
// channel named, 0 if none, also when a later token is refused.  0, or -1 with its lines printed.
i32 VernierLensd_ParseClientCommand(TVernierLensdInfo* pThis, const char* pszQuery, TClientRequest* ptRequest);

// Applies one key and its value to one command.  0, or -1 with a line printed for a word outside the language.
i32 VernierLensd_InterpretClientCommand(TMotorCommand* ptCommand, const char* pszKey, const char* pszValue);

// Turns each '+' into a blank, in place.  Null does nothing.
void VernierLensd_PlusToSpace(char* pszQuery);
