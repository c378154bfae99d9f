// Event types of the HID system.
#pragma once

#define NX_SYSDEFINED 14
#define NX_SUBTYPE_AUX_CONTROL_BUTTONS 8
