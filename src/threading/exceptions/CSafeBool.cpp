#include "CSafeBool.h"

CRetryCounter::~CRetryCounter() = default;
