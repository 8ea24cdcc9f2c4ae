#ifndef SCREENS_SCREENTYPES_H
#define SCREENS_SCREENTYPES_H

/// Where an update comes from: chosen on the main screen, sent to the progress screen as an int.
enum UpdateType { UpdateViaPc = 0, UpdateViaMemoryStick = 1, UpdateViaSdCard = 2 };

/// The places of the two screens in the stacked window.
enum ScreenIndex { MainScreenIndex = 0, ProgressScreenIndex = 1 };

#endif
