// Handlers for swatch exchange files.
#pragma once

// Sets the result to 0 when the host's open file is a swatch exchange file
// and to -30501 otherwise.
void DoFilterFile();

// Selector 21: parses the file into a swatch book and stores the serialized
// XMP packet describing it in a new host handle in the record.
void DoXMPRequest();
