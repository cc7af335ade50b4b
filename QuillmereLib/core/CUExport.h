#pragma once

// Marks what the library exports; everything else stays hidden.
#define QUILLMERE_API __attribute__((visibility("default")))
