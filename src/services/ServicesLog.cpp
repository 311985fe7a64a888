#include "services/ServicesLog.h"

Q_LOGGING_CATEGORY(lcServices, "orvelle.services")
