#include "header_test.h"
