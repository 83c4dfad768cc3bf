#pragma once

using KRSFilter = const char* (*)(const char* key, const char* value);

int KRSCreateTable();
int KRSLoad(const char* path, int handle, KRSFilter filter);
const char* KRSGetValue(int handle, const char* key);
void KRSDestroyTable(int handle);
