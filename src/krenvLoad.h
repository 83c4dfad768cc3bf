// krenvLoad.h - how the library loads pressmark.ini. Not exported and not installed.
#pragma once

class KRSLoadObserver;

/// Loads the settings file `path` into the table `handle`, each value passed through KRSLoadFilter while `observer`, if
/// any, watches. KRSLoad's result.
int loadExpanding(const char* path, int handle, KRSLoadObserver* observer);
