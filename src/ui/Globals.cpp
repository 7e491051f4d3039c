#include "Globals.h"

namespace tess {

Controller *gController = nullptr;
QPointer<MyDocument> gWebsiteDocument;
WebsitePasswordManager *gWPM = nullptr;
Entry *gWebsiteItem = nullptr;
int gPasteCode = 9;
QString gDebugInfo;
QMenu *gRecentWebsitesMenu = nullptr;

} // namespace tess
