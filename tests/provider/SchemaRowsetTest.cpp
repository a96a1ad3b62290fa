// SchemaRowsetTest
#include "ProviderTestSupport.h"
