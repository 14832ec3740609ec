#include "account/accountlogging.h"

Q_LOGGING_CATEGORY(lcAccount, "tamlo.account")
