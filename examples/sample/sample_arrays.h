// The sample's sized arrays: a block of elements and the int member that
// counts them, always replaced together.
#pragma once

#include <cstddef>

// Frees the old block and makes n value-initialised elements (none for n <= 0).
template <class T>
void sample_resize(T*& array, int& count, int n)
{
    delete[] array;
    array = n > 0 ? new T[static_cast<std::size_t>(n)]() : nullptr;
    count = n > 0 ? n : 0;
}
