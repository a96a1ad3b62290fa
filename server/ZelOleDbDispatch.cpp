// Late-bound dispatch of IZelOleDb.
#include "server/Dispatch.h"
