#pragma once

// The file-system library in one include: the interface, the facade callers use, and the
// exceptions its operations throw.
#include "fsapi/CFSOperations.h"
#include "fsapi/FSExceptions.h"
#include "fsapi/IFSOperations.h"
