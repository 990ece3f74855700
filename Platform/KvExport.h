#pragma once

// Marks what the shared libraries show; everything else stays hidden.
#define KV_EXPORT __attribute__((visibility("default")))
