! A Fortran program against an installation: an array, a list, the register, a checksum.
program consumer
    use, intrinsic :: iso_c_binding, only: c_int, c_int32_t, c_long
    use morva
    implicit none
    integer(handle) :: counts, keys
    integer(c_int32_t) :: samples(3) = [5, -7, 11], checksum = 0
    integer(c_int) :: mark
    character(len=200) :: text
    if (elog_init('consumer') /= 0) stop 1

    counts = newarr()
    if (setarr(counts, 'BHZ', 12_handle) /= 0) stop 2
    if (setarr(counts, 'BHE', 7_handle) /= 0) stop 3
    keys = keysarr(counts)
    if (jointbl(keys, '/', text) /= 7) stop 4
    if (text /= 'BHE/BHZ') stop 5
    if (getarr(counts, 'BHZ') /= 12) stop 6
    call freetbl(keys)
    if (freearr(counts) /= 0) stop 7

    mark = elog_mark()
    call register_error(0, 'a reason')
    if (elog_string(mark, text) /= 19) stop 8
    if (text /= 'consumer: a reason'//char(10)) stop 9
    if (clear_register(0) /= 0) stop 10

    if (gse_checksum(samples, 3, checksum) < -1) stop 11
    if (checksum /= 9) stop 12
end program consumer
