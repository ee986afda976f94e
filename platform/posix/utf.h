#pragma once

#include "platform/platform.h"
