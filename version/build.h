#pragma once

// Which build this is: the release and the commit that it was made from, "1.0.0 (6328e23ff418)".
const char* FarlinkBuild();
