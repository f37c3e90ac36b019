// Where the machine keeps the paths of the device.
#ifndef LANYARD_PLATFORM_ROOT_H
#define LANYARD_PLATFORM_ROOT_H

#include <climits>

namespace lanyard::port {

// A path of the device as the machine has it: with a root folder set, an absolute path outside of
// "/dev/" is taken under that folder; any other path is left as it is.
//
// Under a root folder "." and ".." are resolved in the text of the path, and ".." at the top stays
// at the top, so that no path leads out of the folder. (A symbolic link within it may.)
class RootedPath {
  public:
    // `path` must outlive this object.
    explicit RootedPath(const char *path);

    // Returns the path; null with `errno` set when there is none.
    const char *get() const { return result_; }

    RootedPath(const RootedPath &) = delete;
    RootedPath &operator=(const RootedPath &) = delete;
    RootedPath(RootedPath &&) = delete;
    RootedPath &operator=(RootedPath &&) = delete;
    ~RootedPath() = default;

  private:
    const char *result_;
    char text_[PATH_MAX];
};

}  // namespace lanyard::port

#endif
