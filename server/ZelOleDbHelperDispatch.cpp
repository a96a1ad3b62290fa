// Late-bound dispatch of IZelOleDbHelper.
#include "server/Dispatch.h"
