! Without the module, as older programs call: implicit interfaces, and names with two underscores
! when compiled with -fsecond-underscore.
program names
    implicit none
    integer :: elog_init, clear_register, eloginit
    integer(8) :: newtbl, pushtbl, maxtbl, list, index
    if (elog_init('names one two') /= 0) stop 1
    if (eloginit('names') /= 0) stop 1
    list = newtbl(5_8)
    index = pushtbl(list, 2.5d0)
    if (maxtbl(list) /= 1) stop 2
    call register_error(0, 'dropped')
    if (clear_register(0) /= 0) stop 3
    call complain(0, 'complained')
    call die(0, 'ended')
end program names
