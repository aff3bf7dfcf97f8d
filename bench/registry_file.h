#pragma once

// Writes and reads the registry file in the scratch folder.
namespace bench {

// Writes a file with `keys` keys, each with a number and a text as values.
void WriteRegistry(unsigned int keys);

// Calls RegGetValue on a key in the middle of the file. Ends the program if it fails.
void GetRegistryValue(unsigned int keys);

// Calls RegSetValueEx on a key in the middle of the file. Ends the program if it fails. Call
// WriteRegistry again before the next call.
void SetRegistryValue(unsigned int keys);

// Reads the file twice with fscanf and the format's patterns, for comparison.
void ReadRegistryTwice();

}  // namespace bench
