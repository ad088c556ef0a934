# Options of linkers are no part of POSIX.
set(VELTRANO_STAY_LOADED)
set(VELTRANO_LINK_SHARED)
set(VELTRANO_LINK_STATIC)
