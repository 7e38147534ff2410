#include "ZYNInsMediaCheckerOptions.h"

bool ZYNInsMediaCheckerOptions::_quiet = false;
