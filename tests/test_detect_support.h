// Moved beside the detection suites; kept for suites outside tests/detect until they go.
#include "detect/test_detect_support.h"
