#include "Tarvel.h"

// CAN FD data length codes (ISO 11898-1): 0..8 are literal, 9..15 step up to 64.
const unsigned char Tarvel::kDlcToLength[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
