#pragma once
#include "base/scoped_handle.h"
using base::ScopedHandle;
