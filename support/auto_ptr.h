// An owning pointer to one object or to an array of them.
#pragma once

namespace ZEL {

/// Owns one object (`AutoPtr<T>`) or an array (`AutoPtr<T[]>`) made with `new`, and deletes it when it goes out of
/// scope. It can be moved and not copied: there is exactly one owner. It is no shared handle and takes no lock; whoever
/// shares an AutoPtr between threads guards it.
template <class T>
class AutoPtr {
 public:
  explicit AutoPtr(T* object = nullptr) : object_(object) {}
  ~AutoPtr() { delete object_; }

  AutoPtr(AutoPtr&& other) noexcept : object_(other.release()) {}
  AutoPtr& operator=(AutoPtr&& other) noexcept {
    reset(other.release());
    return *this;
  }
  AutoPtr(const AutoPtr&) = delete;
  AutoPtr& operator=(const AutoPtr&) = delete;

  T* get() const { return object_; }
  T& operator*() const { return *object_; }
  T* operator->() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }

  /// Deletes the object and takes over another one (or none).
  void reset(T* object = nullptr) {
    T* old = object_;
    object_ = object;
    if (old != object) delete old;
  }

  /// Gives the object up without deleting it.
  T* release() {
    T* object = object_;
    object_ = nullptr;
    return object;
  }

 private:
  T* object_;
};

// NOLINTBEGIN(modernize-avoid-c-arrays): the form for arrays is named by one.
template <class T>
class AutoPtr<T[]> {
 public:
  explicit AutoPtr(T* objects = nullptr) : objects_(objects) {}
  ~AutoPtr() { delete[] objects_; }

  AutoPtr(AutoPtr&& other) noexcept : objects_(other.release()) {}
  AutoPtr& operator=(AutoPtr&& other) noexcept {
    reset(other.release());
    return *this;
  }
  AutoPtr(const AutoPtr&) = delete;
  AutoPtr& operator=(const AutoPtr&) = delete;

  T* get() const { return objects_; }
  T& operator[](unsigned long index) const { return objects_[index]; }
  explicit operator bool() const { return objects_ != nullptr; }

  void reset(T* objects = nullptr) {
    T* old = objects_;
    objects_ = objects;
    if (old != objects) delete[] old;
  }

  T* release() {
    T* objects = objects_;
    objects_ = nullptr;
    return objects;
  }

 private:
  T* objects_;
};

// NOLINTEND(modernize-avoid-c-arrays)

}  // namespace ZEL
