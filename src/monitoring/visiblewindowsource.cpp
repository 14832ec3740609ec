#include "monitoring/visiblewindowsource.h"

#include "monitoring/screencaptureservice.h"

using namespace Qt::StringLiterals;

WindowListing VisibleWindowSource::listingFor(const QProcessEnvironment &environment)
{
    if (ScreenCaptureService::sessionType(environment) == ScreenCaptureService::SessionType::X11) {
        return WindowListing::X11;
    }
    return environment.value(u"SWAYSOCK"_s).isEmpty() ? WindowListing::None : WindowListing::Sway;
}
