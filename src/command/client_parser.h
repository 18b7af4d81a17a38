// The query language of clients, as in "function=zoom&direction=forward&steps=3".
//
// Tokens are read from left to right.  A word matches every text that begins with it; the rest of the text is ignored.
// The tokens after a "channel" token fill the command of that channel, so a query names the channel before the
// function.  Main thread.
#pragma once

#include "core/context.h"

// Parses pszQuery into ptRequest, which the caller has zeroed.  pszQuery is not changed.  iCurChannel becomes the last
// channel named, or 0 if none, even if a later token is refused.  Returns 0, or -1 with lines printed.
i32 VernierLensd_ParseClientCommand(TVernierLensdInfo* pThis, const char* pszQuery, TClientRequest* ptRequest);

// Applies one key and its value to one command.  Returns 0, or -1 with a line printed for a word outside the language.
i32 VernierLensd_InterpretClientCommand(TMotorCommand* ptCommand, const char* pszKey, const char* pszValue);

// Turns each '+' into a blank, in place.  pszQuery may be null.
void VernierLensd_PlusToSpace(char* pszQuery);
