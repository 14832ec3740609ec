#pragma once

#include <QLoggingCategory>

// Developer diagnostics of the reports, apart from the user's event log.
Q_DECLARE_LOGGING_CATEGORY(lcReports)
