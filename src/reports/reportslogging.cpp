#include "reports/reportslogging.h"

Q_LOGGING_CATEGORY(lcReports, "tamlo.reports")
