// The files of a camera as its maker ships it: configuration, saved state and tables of a lens model, below ROOT.
// Errors are printed on stderr.
#pragma once

#include <stddef.h>

#include "lens/lens_model.h"

constexpr size_t dwCameraPath = 4096;  // bytes of a path, its NUL among them

// Joins ROOT and a path below it.  Returns false if the path is too long.
bool CameraFiles_JoinPath(char (&szPath)[dwCameraPath], const char* pszRoot, const char* pszBelow);

// Makes a directory and all its parents.
bool CameraFiles_MakeDirectories(const char* pszPath);

bool CameraFiles_WriteText(const char* pszRoot, const char* pszBelow, const char* pszText);

// Copies all files of a folder and of its subfolders to below ROOT/pszBelow, over the files that are there.
bool CameraFiles_CopyOver(const char* pszRoot, const char* pszBelow, const char* pszFolder);

// Writes all files of a model.  Their directories must exist.
bool CameraFiles_Write(const char* pszRoot, const TLensModel& tModel);
