// TableDefinitionTest
#include "ProviderTestSupport.h"
