// The files of a camera as its maker ships it: configuration, saved state and tables of a lens model, below ROOT.
// Errors are told on stderr.
#pragma once

#include <stddef.h>

#include "lens/lens_model.h"

constexpr size_t iCameraPath = 4096;  // bytes of a path, its NUL among them

// ROOT and what lies below it as one path.  False: too long.
bool CameraFiles_JoinPath(char (&szPath)[iCameraPath], const char* pszRoot, const char* pszBelow);

// Makes a directory with all that it lies in.
bool CameraFiles_MakeDirectories(const char* pszPath);

bool CameraFiles_WriteText(const char* pszRoot, const char* pszBelow, const char* pszText);

// All of a model's files, into directories that are there.
bool CameraFiles_Write(const char* pszRoot, const TLensModel& tModel);
