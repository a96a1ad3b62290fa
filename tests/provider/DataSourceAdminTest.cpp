// DataSourceAdminTest
#include "ProviderTestSupport.h"
