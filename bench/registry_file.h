#pragma once

// The registry file of the scratch folder, and what reading it costs at least.
namespace bench {

// Writes `keys` keys with two values each, a number and a text.
void WriteRegistry(unsigned int keys);

// RegGetValue on a key in the middle. Ends the program when it fails.
void GetRegistryValue(unsigned int keys);

// RegSetValueEx on a key in the middle, after which the file must be written anew. Ends the program
// when it fails.
void SetRegistryValue(unsigned int keys);

// Reads the file twice with the format's patterns and keeps nothing.
void ReadRegistryTwice();

}  // namespace bench
