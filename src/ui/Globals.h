#pragma once
// Process-wide current state: the document and entry the hot keys and menus act on.

#include "ui/CurrentEntry.h"

#include <QPointer>
#include <QString>

class QMenu;

namespace tess {

class Controller;
class MyDocument;
class WebsitePasswordManager;

extern Controller *gController;
// The document whose window last became main, its website manager, and the current entry
// (the single selected row, or the copy open in the editor).
extern QPointer<MyDocument> gWebsiteDocument;
extern WebsitePasswordManager *gWPM;
extern CurrentEntry gWebsiteItem;
// The virtual key code of "v", for paste keystrokes.
extern int gPasteCode;
extern QString gDebugInfo;
// The File menu's "Go To Recent Website" submenu, shared by every document window.
extern QMenu *gRecentWebsitesMenu;

} // namespace tess
