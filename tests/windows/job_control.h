#pragma once

#include <string>
#include <vector>

// The actions of direct_host; each takes the words behind its name.
void CheckJobControl(const std::vector<std::string>& words);
