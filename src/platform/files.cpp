// Files: the CreateFileW family over POSIX descriptors. A HANDLE points at a
// small record kept in a registry, so a made-up or closed handle is refused
// instead of reaching somebody else's descriptor.
#include <tovrel/platform.h>

#include "gdiobj.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <unordered_set>

namespace {

struct FileRecord {
    int fd;
};

std::mutex g_mutex;
std::unordered_set<FileRecord*>& Registry() {
    static auto* set = new std::unordered_set<FileRecord*>;  // lives to the end of the process
    return *set;
}

FileRecord* Lookup(HANDLE h) {
    auto* f = static_cast<FileRecord*>(h);
    std::lock_guard<std::mutex> lock(g_mutex);
    return Registry().count(f) ? f : nullptr;
}

// The common start of a read or a write: the count is 0 until bytes move,
// and the handle and buffer must be good. NULL (last error set) otherwise.
FileRecord* StartTransfer(HANDLE file, const void* buffer, DWORD bytes, DWORD* count) {
    if (count) *count = 0;
    FileRecord* f = Lookup(file);
    if (!f || (!buffer && bytes)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return f;
}

DWORD ErrorFromErrno(int e) {
    switch (e) {
    case ENOENT: case ENOTDIR: return ERROR_FILE_NOT_FOUND;
    case EACCES: case EPERM: case EROFS: case EISDIR: return ERROR_ACCESS_DENIED;
    case ENOSPC: case EDQUOT: return ERROR_DISK_FULL;
    case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
    case EBADF: return ERROR_INVALID_HANDLE;
    case EIO: return ERROR_WRITE_FAULT;
    default: return ERROR_INVALID_PARAMETER;
    }
}

// File names are UTF-16; the kernel takes UTF-8. PATH_MAX bounds the result.
bool NarrowName(const WCHAR* name, char* out, size_t cap) {
    if (!name || !name[0]) return false;
    return PlatWideToUtf8(name, out, cap) != static_cast<size_t>(-1);
}

constexpr size_t kNameBytes = 4096;

}  // namespace

extern "C" {

HANDLE CreateFileW(const WCHAR* name, DWORD access, DWORD /*share*/, void* /*security*/,
                   DWORD disposition, DWORD /*attributes*/, HANDLE /*templ*/) {
    char path[kNameBytes];
    if (!NarrowName(name, path, sizeof path)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    int flags = O_CLOEXEC;
    bool read = access & GENERIC_READ, write = access & GENERIC_WRITE;
    flags |= read && write ? O_RDWR : write ? O_WRONLY : O_RDONLY;
    switch (disposition) {
    case CREATE_NEW: flags |= O_CREAT | O_EXCL; break;
    case CREATE_ALWAYS: flags |= O_CREAT | O_TRUNC; break;
    case OPEN_EXISTING: break;
    case OPEN_ALWAYS: flags |= O_CREAT; break;
    case TRUNCATE_EXISTING: flags |= O_TRUNC; break;
    default:
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    auto* record = static_cast<FileRecord*>(PlatAlloc(sizeof(FileRecord), true));
    if (!record) return INVALID_HANDLE_VALUE;
    int fd;
    do fd = open(path, flags, 0644);
    while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        SetLastError(ErrorFromErrno(errno));
        PlatFree(record);
        return INVALID_HANDLE_VALUE;
    }
    struct stat st;
    if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        close(fd);
        PlatFree(record);
        SetLastError(ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    }
    record->fd = fd;
    std::lock_guard<std::mutex> lock(g_mutex);
    Registry().insert(record);
    return record;
}

BOOL ReadFile(HANDLE file, void* buffer, DWORD bytes, DWORD* read, void* /*overlapped*/) {
    FileRecord* f = StartTransfer(file, buffer, bytes, read);
    if (!f) return FALSE;
    DWORD done = 0;
    while (done < bytes) {
        ssize_t n = ::read(f->fd, static_cast<BYTE*>(buffer) + done, bytes - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            SetLastError(ErrorFromErrno(errno));
            if (read) *read = done;
            return FALSE;
        }
        if (n == 0) break;  // end of file: success with fewer bytes
        done += static_cast<DWORD>(n);
    }
    if (read) *read = done;
    return TRUE;
}

// A write that cannot place its bytes reports what it placed, 0 for none,
// which is how callers tell a full medium.
BOOL WriteFile(HANDLE file, const void* buffer, DWORD bytes, DWORD* written, void* /*overlapped*/) {
    FileRecord* f = StartTransfer(file, buffer, bytes, written);
    if (!f) return FALSE;
    DWORD done = 0;
    while (done < bytes) {
        ssize_t n = ::write(f->fd, static_cast<const BYTE*>(buffer) + done, bytes - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            SetLastError(n < 0 ? ErrorFromErrno(errno) : ERROR_WRITE_FAULT);
            if (written) *written = done;
            return FALSE;
        }
        done += static_cast<DWORD>(n);
    }
    if (written) *written = done;
    return TRUE;
}

BOOL CloseHandle(HANDLE file) {
    auto* f = static_cast<FileRecord*>(file);
    {
        std::lock_guard<std::mutex> lock(g_mutex);
        if (!Registry().erase(f)) {
            SetLastError(ERROR_INVALID_HANDLE);
            return FALSE;
        }
    }
    int rc = close(f->fd);
    int err = errno;
    PlatFree(f);
    if (rc != 0 && err != EINTR) {
        SetLastError(ErrorFromErrno(err));
        return FALSE;
    }
    return TRUE;
}

DWORD SetFilePointer(HANDLE file, LONG distance, LONG* distanceHigh, DWORD method) {
    FileRecord* f = Lookup(file);
    if (!f) {
        SetLastError(ERROR_INVALID_HANDLE);
        return INVALID_SET_FILE_POINTER;
    }
    int64_t offset = distanceHigh ? (static_cast<int64_t>(*distanceHigh) << 32) | static_cast<DWORD>(distance)
                                  : static_cast<int64_t>(distance);
    int whence = method == FILE_BEGIN ? SEEK_SET : method == FILE_CURRENT ? SEEK_CUR : method == FILE_END ? SEEK_END : -1;
    if (whence < 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_SET_FILE_POINTER;
    }
    off_t pos = lseek(f->fd, offset, whence);
    if (pos < 0) {
        SetLastError(ErrorFromErrno(errno));
        return INVALID_SET_FILE_POINTER;
    }
    if (distanceHigh) *distanceHigh = static_cast<LONG>(static_cast<uint64_t>(pos) >> 32);
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(pos);
}

DWORD GetFileSize(HANDLE file, DWORD* sizeHigh) {
    FileRecord* f = Lookup(file);
    struct stat st;
    if (!f || fstat(f->fd, &st) != 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        if (sizeHigh) *sizeHigh = 0;
        return INVALID_FILE_SIZE;
    }
    uint64_t size = static_cast<uint64_t>(st.st_size);
    if (sizeHigh) *sizeHigh = static_cast<DWORD>(size >> 32);
    SetLastError(ERROR_SUCCESS);
    return static_cast<DWORD>(size);
}

BOOL FlushFileBuffers(HANDLE file) {
    FileRecord* f = Lookup(file);
    if (!f) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    // Pipes, terminals and the like cannot be synced; that is no failure.
    if (fsync(f->fd) != 0 && errno != EINVAL && errno != EROFS) {
        SetLastError(ErrorFromErrno(errno));
        return FALSE;
    }
    return TRUE;
}

DWORD GetFileAttributesW(const WCHAR* name) {
    char path[kNameBytes];
    struct stat st;
    if (!NarrowName(name, path, sizeof path) || stat(path, &st) != 0) {
        SetLastError(ERROR_FILE_NOT_FOUND);
        return INVALID_FILE_ATTRIBUTES;
    }
    DWORD attributes = S_ISDIR(st.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : 0;
    if (access(path, W_OK) != 0) attributes |= FILE_ATTRIBUTE_READONLY;
    return attributes ? attributes : FILE_ATTRIBUTE_NORMAL;
}

BOOL DeleteFileW(const WCHAR* name) {
    char path[kNameBytes];
    if (!NarrowName(name, path, sizeof path) || unlink(path) != 0) {
        SetLastError(name ? ErrorFromErrno(errno) : ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    return TRUE;
}

}  // extern "C"
