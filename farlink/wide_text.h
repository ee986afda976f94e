#pragma once

#include "farlink/file_path.h"
#include "platform/platform.h"
