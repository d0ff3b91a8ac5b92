// Files: the CreateFileW family over POSIX descriptors. A HANDLE points at a
// small record kept in the handle registry, so a made-up or closed handle is
// refused instead of reaching somebody else's descriptor.
//
// Opening never blocks: a FIFO is refused rather than waited on. Reading
// takes regular files only; writing also character devices (/dev/null).
// Replacing a file (CREATE_ALWAYS) writes a temporary beside it, which
// CloseHandle renames over the old file only when every write succeeded:
// a failed save leaves the old file byte for byte as it was.
#include <tovrel/handleset.h>
#include <tovrel/platform.h>

#include "gdiobj.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>

namespace {

struct FileRecord {
    PlatHandleLink link;
    int fd;
    bool failed;     // a write on this handle failed
    char* temporary; // a replacement in progress: the file written
    char* target;    // ... and the file it replaces at close
};

PlatHandleSet g_files;
std::atomic<long> g_writes{0};
std::atomic<long> g_failWriteAt{0};

FileRecord* Lookup(HANDLE h) { return g_files.Contains(h) ? static_cast<FileRecord*>(h) : nullptr; }

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
    case ENOSPC: case EDQUOT: case EFBIG: return ERROR_DISK_FULL;
    case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
    case EBADF: return ERROR_INVALID_HANDLE;
    case EIO: return ERROR_WRITE_FAULT;
    case ENAMETOOLONG: return ERROR_INVALID_NAME;
    default: return ERROR_INVALID_PARAMETER;
    }
}

// A lone surrogate has no UTF-8 form: converting it to U+FFFD would let two
// different names reach the same file.
bool ValidUtf16(const WCHAR* name) {
    for (const WCHAR* p = name; *p; ++p) {
        if (*p >= 0xD800 && *p <= 0xDBFF) {
            if (p[1] < 0xDC00 || p[1] > 0xDFFF) return false;
            ++p;
        } else if (*p >= 0xDC00 && *p <= 0xDFFF) {
            return false;
        }
    }
    return true;
}

// File names are UTF-16; the kernel takes UTF-8. PATH_MAX bounds the result.
bool NarrowName(const WCHAR* name, char* out, size_t cap) {
    if (!name || !name[0] || !ValidUtf16(name)) return false;
    return PlatWideToUtf8(name, out, cap) != static_cast<size_t>(-1);
}

constexpr size_t kNameBytes = PATH_MAX;

char* CopyText(const char* text) {
    size_t n = std::strlen(text) + 1;
    auto* copy = static_cast<char*>(PlatAlloc(n, false));
    if (copy) std::memcpy(copy, text, n);
    return copy;
}

int OpenRetrying(const char* path, int flags) {
    int fd;
    do fd = open(path, flags, 0644);
    while (fd < 0 && errno == EINTR);
    return fd;
}

// What may be opened: regular files, and for writing character devices
// too. Anything else (a FIFO, a socket, a directory) would block or make no
// sense as a picture.
bool Acceptable(const struct stat& st, bool write) {
    return S_ISREG(st.st_mode) || (write && S_ISCHR(st.st_mode));
}

// Opens without blocking and keeps the descriptor only for what Acceptable
// allows; -1 with the last error set otherwise.
int OpenChecked(const char* path, int flags, bool write) {
    int fd = OpenRetrying(path, flags | O_NONBLOCK);
    if (fd < 0) {
        SetLastError(errno == ENXIO ? ERROR_ACCESS_DENIED : ErrorFromErrno(errno));
        return -1;
    }
    struct stat st;
    if (fstat(fd, &st) != 0 || !Acceptable(st, write)) {
        close(fd);
        SetLastError(ERROR_ACCESS_DENIED);
        return -1;
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
    return fd;
}

// New files get 0644 less the umask, as open() would give them. The mask
// is read once, at load, before any thread runs: reading it means setting it.
const mode_t g_creationMode = [] {
    mode_t mask = umask(0);
    umask(mask);
    return mode_t(0644 & ~mask);
}();

// The start of a replacement: a temporary beside the file that a path
// names (through any symbolic link). -1 when none can be made there.
int OpenTemporary(const char* path, FileRecord* record) {
    char resolved[kNameBytes];
    struct stat st;
    bool exists = stat(path, &st) == 0;
    const char* target = path;
    if (exists && realpath(path, resolved)) target = resolved;
    char temporary[kNameBytes];
    const char* slash = std::strrchr(target, '/');
    int n = slash ? std::snprintf(temporary, sizeof temporary, "%.*s/.%s.XXXXXX", int(slash - target), target,
                                  slash + 1)
                  : std::snprintf(temporary, sizeof temporary, ".%s.XXXXXX", target);
    if (n < 0 || size_t(n) >= sizeof temporary) {
        errno = ENAMETOOLONG;
        return -1;
    }
    int fd = mkostemp(temporary, O_CLOEXEC);
    if (fd < 0) return -1;
    // The new file gets the old one's permissions, or the usual ones.
    fchmod(fd, exists ? (st.st_mode & 07777) : g_creationMode);
    record->temporary = CopyText(temporary);
    record->target = CopyText(target);
    if (!record->temporary || !record->target) {
        unlink(temporary);
        close(fd);
        errno = ENOMEM;
        return -1;
    }
    return fd;
}

// CREATE_ALWAYS: a regular file (or none yet) is replaced through a
// temporary; a device is written in place. Where the folder takes no new
// file but the old one may be written, it is written in place as well.
int OpenForReplacement(const char* path, int flags, FileRecord* record) {
    struct stat st;
    if (stat(path, &st) == 0 && !S_ISREG(st.st_mode)) return OpenChecked(path, flags | O_TRUNC, true);
    int fd = OpenTemporary(path, record);
    if (fd >= 0) return fd;
    int reason = errno;
    if ((reason == EACCES || reason == EROFS || reason == EPERM) && access(path, W_OK) == 0)
        return OpenChecked(path, flags | O_TRUNC, true);
    SetLastError(ErrorFromErrno(reason));
    return -1;
}

void FreeRecord(FileRecord* f) {
    PlatFree(f->temporary);
    PlatFree(f->target);
    PlatFree(f);
}

// Takes a handle out of the registry; NULL when it is not an open file.
FileRecord* Unregister(HANDLE file) {
    if (!g_files.Erase(file)) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return static_cast<FileRecord*>(file);
}

bool WriteFaultNow() {
    long n = ++g_writes;
    long at = g_failWriteAt.load(std::memory_order_relaxed);
    return at != 0 && n == at;
}

}  // namespace

extern "C" {

HANDLE CreateFileW(const WCHAR* name, DWORD access, DWORD /*share*/, void* /*security*/,
                   DWORD disposition, DWORD /*attributes*/, HANDLE /*templ*/) {
    char path[kNameBytes];
    if (!NarrowName(name, path, sizeof path)) {
        SetLastError(name && name[0] ? ERROR_INVALID_NAME : ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    bool read = access & GENERIC_READ, write = access & GENERIC_WRITE;
    int flags = O_CLOEXEC | (read && write ? O_RDWR : write ? O_WRONLY : O_RDONLY);
    switch (disposition) {
    case CREATE_NEW: flags |= O_CREAT | O_EXCL; break;
    case CREATE_ALWAYS: break;
    case OPEN_EXISTING: break;
    case OPEN_ALWAYS: flags |= O_CREAT; break;
    case TRUNCATE_EXISTING: flags |= O_TRUNC; break;
    default:
        SetLastError(ERROR_INVALID_PARAMETER);
        return INVALID_HANDLE_VALUE;
    }
    auto* record = PlatNew<FileRecord>();
    if (!record) return INVALID_HANDLE_VALUE;
    int fd = disposition == CREATE_ALWAYS && write ? OpenForReplacement(path, flags, record)
                                                   : OpenChecked(path, flags, write);
    if (fd < 0) {
        FreeRecord(record);
        return INVALID_HANDLE_VALUE;
    }
    record->fd = fd;
    g_files.Insert(record, &record->link);
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

// All bytes or a failure that reports none written, so that every caller's
// test of the count sees a full medium; the handle remembers the failure.
BOOL WriteFile(HANDLE file, const void* buffer, DWORD bytes, DWORD* written, void* /*overlapped*/) {
    FileRecord* f = StartTransfer(file, buffer, bytes, written);
    if (!f) return FALSE;
    DWORD done = 0;
    DWORD error = WriteFaultNow() ? ERROR_DISK_FULL : ERROR_SUCCESS;
    while (error == ERROR_SUCCESS && done < bytes) {
        ssize_t n = ::write(f->fd, static_cast<const BYTE*>(buffer) + done, bytes - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) error = n < 0 ? ErrorFromErrno(errno) : ERROR_WRITE_FAULT;
        else done += static_cast<DWORD>(n);
    }
    if (error != ERROR_SUCCESS) {
        f->failed = true;
        SetLastError(error);
        return FALSE;
    }
    if (written) *written = done;
    return TRUE;
}

BOOL CloseHandle(HANDLE file) {
    FileRecord* f = Unregister(file);
    if (!f) return FALSE;
    bool ok = !f->failed;
    DWORD error = ERROR_WRITE_FAULT;
    // A replacement reaches the disk before it takes the old file's name.
    if (ok && f->temporary && fsync(f->fd) != 0) {
        ok = false;
        error = ErrorFromErrno(errno);
    }
    if (close(f->fd) != 0 && errno != EINTR && ok) {
        ok = false;
        error = ErrorFromErrno(errno);
    }
    if (f->temporary) {
        if (ok && rename(f->temporary, f->target) != 0) {
            ok = false;
            error = ErrorFromErrno(errno);
        }
        if (!ok) unlink(f->temporary);
    }
    FreeRecord(f);
    if (!ok) SetLastError(error);
    return ok ? TRUE : FALSE;
}

BOOL PlatDiscardFile(HANDLE file) {
    FileRecord* f = Unregister(file);
    if (!f) return FALSE;
    close(f->fd);
    if (f->temporary) unlink(f->temporary);
    FreeRecord(f);
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

void PlatFailWrite(long nth) { g_failWriteAt = nth > 0 ? g_writes.load() + nth : 0; }

}  // extern "C"
