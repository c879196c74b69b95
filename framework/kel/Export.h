#pragma once

/// Everything is built with hidden visibility; what a shared library offers is marked.
#define KEL_EXPORT [[gnu::visibility("default")]]
