// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// All families of plain functions. Every Svc call but those that return a pointer returns an
/// unsigned status, 0 for success, and throws nothing.

#include <sup++/SvcCommandLine.h>
#include <sup++/SvcData.h>
#include <sup++/SvcDispatch.h>
#include <sup++/SvcFile.h>
#include <sup++/SvcLock.h>
#include <sup++/SvcMemory.h>
#include <sup++/SvcMessage.h>
#include <sup++/SvcProcess.h>
#include <sup++/SvcService.h>
#include <sup++/SvcTrace.h>
