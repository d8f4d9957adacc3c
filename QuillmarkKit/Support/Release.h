#pragma once

namespace quillmark {

/// For a `std::unique_ptr` to an object of a C library: gives it back by that library's own function.
template <auto release>
struct Release {
    template <typename T>
    void operator()(T* object) const {
        release(object);
    }
};

}  // namespace quillmark
