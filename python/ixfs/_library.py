"""The shared library, and its interface as ixfs.h and ixfs_prepare.h declare it."""
import ctypes
import functools
import os

from ._errors import LibraryNotFound

SONAME = "libixfs.so.1"
OVERRIDE = "IXFS_LIBRARY"

FLAG_UNMOUNT_CRED = 0x1

# Called by the thread of the call and by validation threads, with the interpreter's lock taken.
LogCallback = ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_char_p, ctypes.c_char_p)


class PrepareRequest(ctypes.Structure):
    """struct ixfs_prepare_request."""

    _fields_ = [
        ("size", ctypes.c_size_t),
        ("server", ctypes.c_char_p),
        ("mount_cred", ctypes.c_char_p),
        ("unmount_cred", ctypes.c_char_p),
        ("backup_id", ctypes.c_char_p),
        ("disks", ctypes.POINTER(ctypes.c_char_p)),
        ("disk_count", ctypes.c_size_t),
        ("port", ctypes.c_int),
        ("schedule_type", ctypes.c_int),
        ("timeout", ctypes.c_uint),
        ("new_disk_uuids", ctypes.c_int),
        ("log_callback", LogCallback),
    ]


class PrepareResult(ctypes.Structure):
    """struct ixfs_prepare_result."""

    _fields_ = [
        ("status", ctypes.c_int32),
        ("error", ctypes.c_char_p),
        ("configuration", ctypes.c_void_p),  # it may be of any length: string_at reads it
        ("configuration_length", ctypes.c_size_t),
        ("paths", ctypes.POINTER(ctypes.c_char_p)),
        ("path_count", ctypes.c_size_t),
    ]


_HANDLE = ctypes.c_void_p

# Name, result, arguments.
_FUNCTIONS = [
    ("ixfs_init", _HANDLE,
     [ctypes.c_int, ctypes.c_void_p, LogCallback, ctypes.c_void_p, ctypes.c_void_p]),
    ("ixfs_term", None, [_HANDLE]),
    ("ixfs_last_error", ctypes.c_int32, [_HANDLE]),
    ("ixfs_status_text", ctypes.c_char_p, [ctypes.c_int]),
    ("ixfs_version", ctypes.c_char_p, []),
    ("ixfs_mount", ctypes.c_char_p,
     [_HANDLE, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_int, ctypes.c_char_p, ctypes.c_uint,
      ctypes.c_char_p]),
    ("ixfs_unmount", ctypes.c_int32, [_HANDLE]),
    ("ixfs_prepare", ctypes.POINTER(PrepareResult), [ctypes.POINTER(PrepareRequest)]),
    ("ixfs_prepare_result_free", None, [ctypes.POINTER(PrepareResult)]),
]


@functools.cache
def load() -> ctypes.CDLL:
    """Returns the library. Loads it at the first call; raises LibraryNotFound if that fails."""
    path = os.environ.get(OVERRIDE) or SONAME
    try:
        library = ctypes.CDLL(path)
    except OSError as error:
        raise LibraryNotFound(
            f"{error}. Install libixfs where the loader finds {SONAME} (then run ldconfig), or set "
            f"LD_LIBRARY_PATH to its folder, or {OVERRIDE} to its file") from None
    for name, result, arguments in _FUNCTIONS:
        try:
            function = getattr(library, name)
        except AttributeError:
            raise LibraryNotFound(
                f"{path} has no {name}: it is another library, or older than this package"
            ) from None
        function.restype = result
        function.argtypes = arguments
    return library


def library_version() -> str:
    """Returns the version of the library that the program runs with, such as "1.0.0"."""
    version: bytes = load().ixfs_version()
    return version.decode("ascii")
