#include "Globals.h"

namespace tess {

Controller *gController = nullptr;
QPointer<MyDocument> gWebsiteDocument;
WebsitePasswordManager *gWPM = nullptr;
CurrentEntry gWebsiteItem;
int gPasteCode = 9;
QString gDebugInfo;
QMenu *gRecentWebsitesMenu = nullptr;

} // namespace tess
