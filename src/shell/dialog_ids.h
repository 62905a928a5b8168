// shell/dialog_ids.h - numbers of the dialog and its controls. Macros, since the resource compiler
// reads them too; other programs may send clicks by these numbers, so they stay as they are.
#pragma once

#define DLG_TEMPLATE 102
#define DLG_BAR 1075
#define DLG_PAUSE 1151
#define DLG_STATUS 1153
#define DLG_LABEL 1154
#define DLG_RESUME 1155
#define DLG_STOP 1156
