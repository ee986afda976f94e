#pragma once

class krelMonRegistryAgent;

// Reads the four log settings from the key "Ports", which is made if it is missing, and puts them in
// force; one that is missing keeps its value. Once per monitor, while it initialises.
void LoadLogSettings(krelMonRegistryAgent& agent);
