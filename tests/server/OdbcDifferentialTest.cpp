#include "tests/server/OdbcServerSupport.h"
