! Exercises the Fortran twins through the module. With an argument, a fatal path:
!   twins die      ends through die
module checks
    use, intrinsic :: iso_c_binding
    use morva
    implicit none
    integer :: failures = 0
contains
    subroutine check(holds, what)
        logical, intent(in) :: holds
        character(len=*), intent(in) :: what
        if (holds) return
        print '(2a)', 'failed: ', what
        failures = failures + 1
    end subroutine

    ! Callbacks, as the library calls them.
    function by_value_of(a, b) result(order)
        real(8), intent(in) :: a, b
        integer(c_int) :: order
        order = merge(1, merge(-1, 0, a < b), a > b)
    end function

    function add_up(item, total) result(counted)
        real(8), intent(in) :: item
        real(8), intent(inout) :: total
        integer(c_int) :: counted
        total = total + item
        counted = 1
    end function

    function note_key(key, item, sum) result(counted)
        character(c_char), intent(in) :: key(*)
        integer(handle), value :: item
        integer(handle), intent(inout) :: sum
        integer(c_int) :: counted
        sum = sum + item * merge(1, 100, key(1) == 'b')
        counted = 1
    end function

    function descending(a, b) result(order)
        integer(handle), value :: a, b
        integer(c_int) :: order
        order = merge(1, merge(-1, 0, a > b), a < b)
    end function

    subroutine lists_of_numbers()
        integer(handle) :: list
        integer(c_long) :: i, first, last
        real(8) :: x, total
        real(8), pointer :: slot
        list = newtbl(2_c_long)
        do i = 1, 50
            call check(pushtbl(list, real(mod(7 * i, 50_c_long), 8)) == i - 1, 'pushtbl index')
        end do
        call check(maxtbl(list) == 50, 'maxtbl')
        call c_f_pointer(gettbl(list, 2_c_long), slot)
        call check(slot == 21, 'gettbl gives the address of the slot')
        call sorttbl(list, by_value_of)
        call check(itemgettbl(list, 49_c_long, x) == 0, 'sorttbl, itemgettbl')
        call check(x == 49, 'sorttbl, itemgettbl')
        call check(itemgettbl(list, 50_c_long, x) == -1, 'itemgettbl outside')
        call check(x == 0, 'itemgettbl outside')
        call check(searchtbl(12d0, list, by_value_of, first_index=first, last_index=last) == 1, 'searchtbl')
        call check(first == 12, 'searchtbl')
        call check(last == 12, 'searchtbl')
        total = 0
        call check(applytbl(list, add_up, total) == 50, 'applytbl')
        call check(total == 1225, 'applytbl')
        call check(unshifttbl(list, -1d0) == 0, 'front')
        call check(instbl(list, 1_c_long, -0.5d0) == 1, 'front')
        call check(itemgettbl(list, 0_c_long, x) == 0, 'unshifttbl')
        call check(x == -1, 'unshifttbl')
        call c_f_pointer(deltbl(list, 1_c_long), slot)
        call check(slot == -0.5d0, 'deltbl')
        call check(maxtbl(list) == 51, 'deltbl')
        call trunctbl(list, 3_c_long)
        call check(maxtbl(list) == 3, 'trunctbl')
        call check(verifytbl(list) == 0, 'trunctbl')
        call freetbl(list)
    end subroutine

    subroutine lists_of_strings()
        integer(handle) :: list, found, other, only, also, both
        integer(c_long) :: i
        character(len=8) :: text
        character(len=40) :: line
        list = newtbl(0_c_long)
        i = strsettbl(list, -1_c_long, 'BHZ   ')
        i = strsettbl(list, -1_c_long, 'a long channel name')
        call check(strsettbl(list, 3_c_long, 'LHZ') == 3, 'strsettbl index')
        call check(strgettbl(list, 0_c_long, text) == 3, 'strgettbl pads')
        call check(text == 'BHZ', 'strgettbl pads')
        call check(strgettbl(list, 1_c_long, text) == 19, 'strgettbl cuts')
        call check(text == 'a long c', 'strgettbl cuts')
        call check(strgettbl(list, 2_c_long, text) == -1, 'strgettbl of a gap')
        call check(text == ' ', 'strgettbl of a gap')
        call check(strgettbl(list, 9_c_long, text) == -1, 'strgettbl outside')
        i = strsettbl(list, 2_c_long, '')
        call check(jointbl(list, ', '//char(0), line) == 31, 'jointbl length')
        call check(line == 'BHZ, a long channel name, , LHZ', 'jointbl')
        found = greptbl('.HZ', list)
        call check(maxtbl(found) == 2, 'greptbl')
        call check(itemgettbl(found, 1_c_long, i) == 0, 'greptbl')
        call check(i == 3, 'greptbl')
        call freetbl(found)
        other = strtbl(['LHZ   ', 'absent'], 2_c_long)
        found = commtbl(list, other, in_both)
        call check(maxtbl(found) == 1, 'commtbl')
        call check(strgettbl(found, 0_c_long, text) == 3, 'commtbl')
        call freetbl(found)
        call trunctbl_of_strings(list)
        only = newtbl(0_c_long)
        also = newtbl(0_c_long)
        both = newtbl(0_c_long)
        i = strsettbl(both, -1_c_long, 'left from before')
        call difftbl(list, other, only_a=only, only_b=also, both=both)
        call check(jointbl(only, ' ', line) == 3, 'difftbl, only in the first')
        call check(line == 'BHZ', 'difftbl, only in the first')
        call check(jointbl(also, '/', line) == 10, 'difftbl, only in the second')
        call check(line == 'LHZ/absent', 'difftbl, only in the second')
        call check(maxtbl(both) == 0, 'difftbl, in both')
        call strfreetbl(only)
        call strfreetbl(also)
        call strfreetbl(both)
        call strfreetbl(other)
        call strfreetbl(list)
    end subroutine

    ! Leaves the first string; the dropped ones go to a list that is freed with them.
    subroutine trunctbl_of_strings(list)
        integer(handle), intent(in) :: list
        integer(handle) :: dropped, item
        integer(c_long) :: i
        dropped = newtbl(0_c_long)
        do while (maxtbl(list) > 1)
            i = itemgettbl(list, 1_c_long, item)
            i = pushtbl(dropped, item)
            call check(c_associated(deltbl(list, 1_c_long)), 'deltbl of a string')
        end do
        call strfreetbl(dropped)
    end subroutine

    subroutine lists_in_files(folder)
        character(len=*), intent(in) :: folder
        integer(handle) :: list
        integer(c_long) :: i
        character(len=6) :: label
        call check(filetbl(folder//'/sub/list.tbl', 'counts', 10_c_long, -1_8, 8, list) == 0, 'filetbl')
        i = settbl(list, 4_c_long, 42_8)
        call freetbl(list)
        label = 'other'
        call check(filetbl(folder//'/sub/list.tbl', label, 10_c_long, -1_8, 8, list) == -2, 'label')
        list = readtbl(folder//'/sub/list.tbl', label, 0)
        call check(list /= 0, 'readtbl')
        call check(label == 'counts', 'readtbl')
        call check(itemgettbl(list, 4_c_long, i) == 0, 'item of the file')
        call check(i == 42, 'item of the file')
        call check(itemgettbl(list, 3_c_long, i) == 0, 'null item of the file')
        call check(i == -1, 'null item of the file')
        call freetbl(list)
        list = readtbl(folder//'/none', label, 0)
        call check(list == 0, 'readtbl of no file')
        call check(label == ' ', 'readtbl of no file')
        i = elog_flush(0, 0)
    end subroutine

    subroutine arrays()
        integer(handle) :: array, keys, other, none, more, changed, sum
        character(len=8) :: text
        array = newarr()
        call check(setarr(array, 'b  ', 2_handle) == 0, 'setarr of a new key')
        call check(setarr(array, 'a', 1_handle) == 0, 'setarr')
        call check(setarr(array, 'b', 3_handle) == 2, 'setarr')
        call check(getarr(array, 'b     ') == 3, 'getarr')
        call check(getarr(array, 'c') == 0, 'getarr')
        keys = keysarr(array)
        call check(maxtbl(keys) == 2, 'keysarr')
        call check(strgettbl(keys, 0_c_long, text) == 1, 'keysarr')
        call check(text == 'a', 'keys in order')
        call freetbl(keys)
        sum = 0
        call check(applyarr(array, note_key, sum) == 0, 'applyarr')
        call check(sum == 103, 'applyarr')
        other = duparr(array)
        call check(setarr(other, 'b', 9_handle) == 3, 'delarr')
        call check(delarr(other, 'a') == 1, 'delarr')
        none = newtbl(0_c_long)
        more = newtbl(0_c_long)
        changed = newtbl(0_c_long)
        call diffarr(array, other, only_a=none, only_b=more, changed=changed)
        call check(maxtbl(none) == 1, 'diffarr')
        call check(maxtbl(more) == 0, 'diffarr')
        call check(maxtbl(changed) == 1, 'diffarr')
        call strfreetbl(none)
        call strfreetbl(more)
        call strfreetbl(changed)
        call check(cntarr(array) == 2, 'freearr')
        call check(freearr(array) == 0, 'freearr')
        call check(freearr(other) == 0, 'freearr')
    end subroutine

    subroutine cabinets_and_sets()
        integer(handle) :: cabinet, list, set
        integer(c_long) :: item
        character(len=4) :: text
        cabinet = new_tblcabinet(-1)
        call check(strpush_tblcabinet(cabinet, 'AAK', 'BHZ') == 0, 'strpush_tblcabinet')
        call check(strpush_tblcabinet(cabinet, 'AAK', 'BHN') == 0, 'strpush_tblcabinet again')
        list = get_tblcabinet(cabinet, 'AAK')
        call check(maxtbl(list) == 2, 'get_tblcabinet')
        call check(strgettbl(list, 1_c_long, text) == 3, 'get_tblcabinet')
        call check(get_tblcabinet(cabinet, 'PFO') == 0, 'get_tblcabinet of no key')
        call free_tblcabinet(cabinet)
        cabinet = new_tblcabinet(8)
        call check(strpush_tblcabinet(cabinet, 'x', 'no string') == -1, 'no strings by value')
        call check(push_tblcabinet(cabinet, 'x', 7_8) == 0, 'push_tblcabinet')
        list = get_tblcabinet(cabinet, 'x')
        call check(itemgettbl(list, 0_c_long, item) == 0, 'item by value')
        call check(item == 7, 'item by value')
        call free_tblcabinet(cabinet)
        item = elog_flush(0, 0)

        set = newstbl()
        call check(straddstbl(set, 'PFO') == 1, 'straddstbl')
        call check(straddstbl(set, 'AAK') == 1, 'straddstbl')
        call check(straddstbl(set, 'PFO ') == 0, 'equal strings')
        call check(maxstbl(set) == 2, 'equal strings')
        call check(strtststbl(set, 'AAK') == 1, 'strtststbl')
        call check(strtststbl(set, 'A') == 0, 'strtststbl')
        call check(strgetstbl(set, 0_c_long, text) == 3, 'strgetstbl')
        call check(text == 'AAK', 'strgetstbl')
        call strfreestbl(set)
        set = newstbl(descending)
        do item = 1, 5
            call check(addstbl(set, item) == item, 'addstbl')
        end do
        call check(getstbl(set, 0_c_long) == 5, 'own order')
        call check(delstbl(set, 5_handle) == 5, 'own order')
        call check(tststbl(set, 5_handle) == 0, 'delstbl')
        call check(maxstbl(set) == 4, 'delstbl')
        call freestbl(set)
    end subroutine

    subroutine register()
        integer(c_int) :: mark
        character(len=64) :: text
        mark = elog_mark()
        call register_error(0, '100% of it   ')
        call check(elog_mark() == mark + 1, 'register_error')
        call check(elog_string(mark, text) == 18, 'text')
        call check(text == 'twins: 100% of it'//char(10), 'text')
        call check(clear_register(0) == 0, 'clear_register')
        call check(elog_mark() == 0, 'clear_register')
    end subroutine

    subroutine strings()
        integer(handle) :: hook
        integer(c_int) :: start, length
        character(len=12) :: text
        call check(match_stachans('AAK, BBB:BH.  ', 'BBB  ', 'BHZ  ') == 2, 'match_stachans')
        call check(match_stachans('BBB:BH.', 'BBB', 'LHZ') == 0, 'match_stachans of another channel')
        call check(match_string('BH.* ', 'BHZ ') == 1, 'match_string')
        hook = 0
        call check(strmatches('BHZ', 'B.Z', hook) == 1, 'strmatches')
        call check(hook /= 0, 'strmatches')
        call check(strmatches('LHZ', 'ignored', hook) == 0, 'strmatches through its hook')
        call free_hook(hook)
        call check(hook == 0, 'free_hook')
        call check(strcontains('x1234', '[2-3]+', hook, start, length) == 1, 'strcontains')
        call check(start == 2, 'where strcontains found it')
        call check(length == 2, 'where strcontains found it')
        call free_hook(hook)
        call check(levenshtein_distance('kitten', 'sitting') == 3, 'levenshtein_distance')
        call check(strdbl(1d-4, text) == 6, 'strdbl')
        call check(text == '100e-6', 'strdbl')
        text = 'mixed Case'
        call check(str2upper(text) == 10, 'str2upper')
        call check(text == 'MIXED CASE', 'str2upper')
        call check(blank('    ') == 1, 'blank')
        call check(blank(text) == 0, 'blank')
    end subroutine

    subroutine renaming()
        integer(handle) :: lines, rules
        integer(c_long) :: i
        character(len=6) :: name
        lines = newtbl(2_c_long)
        i = strsettbl(lines, -1_c_long, '/^BH(.)$/HH$1/')
        i = strsettbl(lines, -1_c_long, '(bad')
        call check(newmorphtbl(lines, rules) == 1, 'newmorphtbl')
        call check(morphtbl('BHZ  ', rules, 0, name) == 1, 'morphtbl')
        call check(name == 'HHZ', 'morphtbl')
        call check(morphtbl('LHZ', rules, 0, name) == 0, 'morphtbl of another name')
        call check(name == 'LHZ', 'morphtbl of another name')
        call freemorphtbl(rules)
        call strfreetbl(lines)
        call check(clear_register(0) == 0, 'clear_register')
    end subroutine

    ! Below the folder that MORVAPATH names.
    subroutine data_search(folder)
        character(len=*), intent(in) :: folder
        character(len=512) :: path
        call check(datafile('MORVAPATH', 'sub/list.tbl  ', path) == len(folder) + 13, 'datafile')
        call check(path == folder//'/sub/list.tbl', 'datafile')
        call check(datapath('MORVAPATH', 'sub', 'list', 'tbl', path) == len(folder) + 13, 'datapath')
        call check(path == folder//'/sub/list.tbl', 'datapath')
        call check(datapath('MORVAPATH', ' ', 'list', ' ', path) == -1, 'datapath of no file')
        call check(path == ' ', 'datapath of no file')
        call check(newdata('MORVAPATH', 'sub', 'new', ' ', path) == len(folder) + 8, 'newdata')
        call check(path == folder//'/sub/new', 'newdata')
    end subroutine

    subroutine parameters(file)
        character(len=*), intent(in) :: file
        integer(handle) :: tree, copy, node, list
        integer(c_long) :: i
        character(len=8) :: text
        tree = 0
        call check(pfcompile('rate 40.5'//char(10)//'on yes'//char(10)//'size 2k', tree) == 0, &
            'pfcompile')
        call check(pfget_double(tree, 'rate  ') == 40.5d0, 'pfget_double')
        call check(pfget_boolean(tree, 'on') == -1, 'pfget_boolean')
        call check(pfget_size(tree, 'size') == 2000, 'pfget_size')
        call check(pfget_string(tree, 'missing', text) == -1, 'pfget_string')
        call check(text == ' ', 'pfget_string')

        list = newtbl(2_c_long)
        i = strsettbl(list, -1_c_long, 'BHZ')
        i = strsettbl(list, -1_c_long, '17')
        call check(pfput_tbl(tree, 'list', list) == 0, 'pfput_tbl')
        call strfreetbl(list)
        list = pfget_tbl(tree, 'list')
        call check(strgettbl(list, 0_c_long, text) == 3, 'pfget_tbl')
        call freetbl(list)
        call check(pfget(tree, 'list', node) == pftbl, 'pfget')
        call check(pfmaxtbl(node) == 2, 'pfmaxtbl')
        call check(pfget_int(node, '1') == 17, 'an index is written out')
        call check(pfget_string(node, 'x', text) == -1, 'no index')

        call check(pfput_int(tree, 'deep', 12345678901_c_long) == 0, 'pfput_int')
        call check(pfget_int(tree, 'deep') == 12345678901_c_long, 'pfput_int')
        call check(pfput_string(tree, 'deep', 'x  ') == 0, 'pfput_string')
        call check(pfput_double(tree, 'rate', .25d0) == 0, 'pfput_double')
        call check(pfput_boolean(tree, 'on', 0) == 0, 'pfput_boolean')
        call check(pfset(tree, 'a{b}', 'c') == 0, 'pfset')
        call check(pfput_time(tree, 'start', 1403568000d0) == 0, 'pfput_time')
        call check(pfget_time(tree, 'start') == 1403568000, 'pfput_time')
        call check(pfrequire('no such file', '2014-06-24') == -4, 'pfrequire')
        call check(clear_register(0) == 0, 'pfrequire')
        node = pfdel(tree, 'start')
        call pffree(node)
        copy = pfdup(tree)
        call check(pfput(tree, 'graft', copy, pfgraft) == 0, 'pfput')
        call check(pfget_string(tree, 'graft{a}{b}', text) == 1, 'pfput')
        call check(text == 'c', 'pfput')
        node = pfdel(tree, 'graft')
        call check(pfcmp(node, tree) == 0, 'pfdel')
        call pffree(node)
        list = pfkeys(tree)
        call check(maxtbl(list) == 6, 'pfkeys')
        call freetbl(list)
        call check(pfwrite(file, tree) == 0, 'pfwrite')
        call pffree(tree)
        tree = pfnew(pfarr)
        call pffree(tree)
    end subroutine

    subroutine times()
        real(8) :: t, second, first, step
        integer :: year, doy, hour, minute, month, day
        character(len=32) :: text
        t = h2e(2014, 175, 12, 30, 15.5d0)
        call check(t == 1403613015.5d0, 'h2e')
        call check(yearday(t) == 2014175, 'yearday')
        call check(epoch(2014175) == 1403568000, 'epoch')
        call check(dtoepoch(2014175) == 1403568000, 'dtoepoch')
        call e2h(t, year, doy, hour, minute, second)
        call check(year == 2014 .and. doy == 175 .and. hour == 12 .and. minute == 30, 'e2h')
        call check(second == 15.5d0, 'e2h')
        call doy2mday(175, 2014, month, day)
        call check(month == 6 .and. day == 24, 'doy2mday')
        call check(mday2doy(2014, 6, 24) == 175, 'mday2doy')
        call check(epoch2str('%Y-%j %T  ', t, text) == 21, 'epoch2str')
        call check(text == '2014-175 12:30:15.500', 'epoch2str')
        call check(zepoch2str('%H:%M %z', 'XXX-2', t, text) == 9, 'zepoch2str')
        call check(text == '14:30 XXX', 'zepoch2str')
        call check(fmttime(text, 3, ' ', t) == 0, 'fmttime')
        call check(text == '2014-06-24', 'fmttime')
        call check(strtdelta(90061d0, text) == 21, 'strtdelta')
        call check(text == ' 1 days 1.0 hours', 'strtdelta')
        call check(ordinal(22, text) == 2, 'ordinal')
        call check(text == 'nd', 'ordinal')
        call check(timecon('1:2:3.5') == 3723.5d0, 'timecon')
        call check(get_nice_times(10, first, step, t, t + 100) == 0, 'get_nice_times')
        call check(first == t + 4.5d0, 'get_nice_times')
        call check(step == 10, 'get_nice_times')
    end subroutine

    subroutine records_of_fields()
        type(datetime) :: fields, other
        integer(c_int8_t) :: clock(6)
        fields%epoch = h2e(2014, 175, 12, 30, 15.5d0)
        call etoh(fields)
        call check(fields%date == 2014175, 'etoh')
        call check(all(fields%mname == ['J', 'u', 'n', char(0)]), 'name of the month')
        call check(fields%minute == 30 .and. fields%second == 15.5d0, 'last fields')
        other%year = 2012
        other%month = 3
        other%day = 1
        call mdtodate(other)
        call check(other%doy == 61, 'mdtodate')
        call month_day(other)
        call check(other%mname(3) == 'r', 'month_day')
        call htoe(other)
        call check(other%epoch == dtoepoch(2012061), 'htoe')
        call epoch2bcd(clock, fields%epoch)
        call check(all(clock == [23, 81, 35, 1, 80, 80]), 'epoch2bcd')
        call bcdtime(clock, other)
        call check(other%doy == 175 .and. other%second == 15.5d0, 'bcdtime')
        call zh_today(other)
        call check(other%date >= other%year * 1000_c_long, 'zh_today')
        call timeprint(fields)
    end subroutine

    subroutine time_strings()
        real(8) :: t
        integer(c_int64_t) :: nanoseconds
        character(len=32) :: text
        call check(str2epoch('2014-06-24 12:30:15.5   ') == 1403613015.5d0, 'str2epoch')
        call check(zstr2epoch('2014-06-24 12:00 XYZ', t) == -1, 'zstr2epoch')
        call check(t == 1403611200, 'zstr2epoch')
        call check(elog_string(0, text) > 0, 'zstr2epoch registers')
        call check(is_epoch_string('Jun 24 2014', t) == 1, 'is_epoch_string')
        call check(t == 1403568000, 'is_epoch_string')
        call check(time_string2epoch('nothing', t) == 1, 'time_string2epoch')
        call check(t == 0, 'time_string2epoch')
        call check(str2epoch_strict('6/4/2014', t) == -1, 'str2epoch_strict')
        call check(iso2epoch('2014-06-24T12:30:15.25Z', t, nanoseconds) == 0, 'iso2epoch')
        call check(nanoseconds == 1403613015250000000_c_int64_t, 'iso2epoch')
        call check(iso2epoch('2014-06-24', t) == 0, 'iso2epoch without nanoseconds')
        call check(t == 1403568000, 'iso2epoch without nanoseconds')
        call check(epoch2iso(nanoseconds, 1, text) == 22, 'epoch2iso')
        call check(text == '2014-06-24T12:30:15.2Z', 'epoch2iso')
        call switchtz('XXX-2  ')
        call check(mygettz(text) == 8, 'mygettz')
        call check(text == 'TZ=XXX-2', 'mygettz')
        call check(str2epoch('2014-06-24 2:00 LOCAL') == 1403568000, 'switchtz')
        call restoretz()
        call check(mygettz(text) /= 8, 'restoretz')
        call set_time_formats()
        call check(clear_register(0) == 0, 'reasons')
    end subroutine

    subroutine units()
        real(c_double) :: result
        character(len=16) :: difference
        integer(handle) :: names
        call check(units_init() == 0, 'units_init')
        call check(units_convert(90d0, 'km/h ', result, 'm/s', difference) == 0, 'units_convert')
        call check(abs(result - 25) < 1d-12, 'units_convert')
        call check(difference == ' ', 'units_convert')
        call check(units_convert(1d0, 'm', result, 's', difference) == 1, 'units_convert')
        call check(difference == 'm s^-1', 'difference of units')
        call check(units_convert_affine(20d0, 'degC', result, 'K', difference) == 0, 'readings')
        call check(abs(result - 293.15d0) < 1d-12, 'readings')
        names = units_match('lux')
        call check(maxtbl(names) == 4, 'units_match')
        call strfreetbl(names)
    end subroutine

    subroutine controls()
        character(len=8) :: text
        integer(handle) :: programs
        integer(c_int) :: gain
        integer(c_long) :: seen
        call check(dcsetupbyt('trace ', 1) == 63, 'dcsetupbyt')
        call check(dcsetupint('level', -3_c_long) == 15, 'dcsetupint')
        call check(dcsetupstr('mode', 'slow  ') == 15, 'dcsetupstr')
        gain = dcsetupflt('gain', 2.5d0)
        call check(dcgetf(gain) == 2.5d0, 'dcsetupflt, dcgetf')
        seen = dcchanged()
        call check(dcsetf(gain, 3d0) == 0, 'dcsetf')
        call check(dcseti(2, 7_c_long) == 0, 'dcseti')
        call check(dcwait(seen, 0) == 1, 'dcwait')
        call check(dcchanged() == seen + 2, 'dcchanged')
        call check(dcgetf(gain) == 3, 'dcgetf')
        call check(dcgeti(2) == 7, 'dcgeti')
        call check(dcgets(15, text) == 4, 'dcgets')
        call check(text == 'slow', 'dcgets')
        call check(dctrigger(63) == 1, 'dctrigger')
        call check(dcgetb(63) == 0, 'dctrigger')
        call check(dcname(ichar('f'), gain, text) == 4, 'dcname')
        call check(text == 'gain', 'dcname')
        call check(dcexists('none') == 0, 'dcexists')
        programs = dcprograms()
        call check(strgettbl(programs, 0_c_long, text) == 7, 'dcprograms')
        call check(text == '#common', 'dcprograms')
        call freetbl(programs)
    end subroutine

    ! Pushes 2, 4, .. 10 at the times 1 .. 5, then asks for everything.
    subroutine rings(path)
        character(len=*), intent(in) :: path
        type, bind(c) :: point
            real(c_double) :: x, y
        end type
        type, bind(c) :: run
            integer(c_int) :: x, low, high
        end type
        integer(handle) :: ring, list, scaled, pixels, runs
        integer(c_int) :: i, n
        real(c_double) :: t, v, a, b, r, range(4), quantiles(2)
        type(point) :: first
        type(run) :: column
        character(len=20) :: id
        character(len=600) :: name
        id = 'tide'
        call check(newring(path, 'old', 3, 0) == 0, 'newring')
        ring = openring(path, id, 10, 1)
        call check(ring /= 0 .and. id == 'old', 'openring gives the id')
        call check(pushring(ring, 1d0, 1d0) == -1, 'a ring to be read')
        call check(rmring(ring) == 0, 'rmring')
        id = 'tide'
        ring = openring(path, id, 10, 0)
        call check(setring(ring, 60d0, -1d0) == 0, 'setring')
        do i = 1, 4
            call check(pushring(ring, real(i, 8), 2d0 * i) == 0, 'pushring')
        end do
        call check(cramring(ring, 'collapse  ', 5d0, 10d0) == 0, 'cramring')
        call check(cramring(ring, 'collapse  ', 5d0, 10d0) == -2, 'cramring in order')
        call check(countring(ring) == 5, 'countring')
        call check(idring(ring, id) == 4 .and. id == 'tide', 'idring')
        call check(filenamering(ring, name) == len(path) .and. name == path, 'filenamering')
        call check(getring(ring, 1, t, v) == 0 .and. t == 4 .and. v == 8, 'getring')
        call check(getring(ring, 5, t, v) == -1, 'getring beyond the end')
        call check(valring(ring, t, v) == 0 .and. t == 3 .and. v == 6, 'valring')
        call check(nearbymaxring(ring, t, v, 1d0) == 0 .and. t == 4 .and. v == 8, 'nearbymaxring')
        call check(findring(ring, 4d0, 9d0) == 3, 'findring')
        call check(findring(ring, 4d0, 2d0) == -1, 'findring in the span')
        call check(tallyring(ring, 2d0) == 1, 'tallyring')
        call check(changedring(ring, 9d0) == 1, 'changedring')
        call check(maxring(ring, i, 9d0) == 10 .and. i == 0, 'maxring')
        call check(minring(ring, i, 3d0) == 6 .and. i == 2, 'minring')
        call check(meanring(ring, n, a, b, 2d0) == 0 .and. n == 3 .and. a == 8 .and. b == 2, 'mean')
        call check(avgring(ring, 9d0) == 6, 'avgring')
        call check(linearfitring(ring, n, a, b, r, 9d0) == 0 .and. n == 5, 'linearfitring')
        call check(a == 2 .and. b == 0 .and. r == 1, 'linearfitring')
        call check(quantilesring(ring, [0.5d0, 0.25d0], quantiles, 2, 9d0) == 5, 'quantilesring')
        call check(all(quantiles == [6d0, 4d0]), 'quantilesring')
        list = 0
        scaled = 0
        pixels = 0
        runs = 0
        call check(ptsring(ring, list, 4d0, 2.5d0) == 3, 'ptsring')
        call check(itemgettbl(list, 0_c_long, first) == 0, 'ptsring')
        call check(first%x == 2 .and. first%y == 4, 'the oldest comes first')
        call check(ptsrange(list, range) == 0, 'ptsrange')
        call check(all(range == [2, 4, 4, 8]), 'ptsrange')
        call check(scalepts(list, scaled, [1d0, 0d0, 2d0, 1d0]) == 0, 'scalepts')
        call check(ptsrange(scaled, range) == 0, 'ptsrange')
        call check(all(range == [2, 4, 9, 17]), 'scalepts')
        call check(iscalepts(list, pixels, [1d0, 0d0, 1d0, 0d0]) == 0, 'iscalepts')
        call check(decimatepts(pixels, 100, 6, runs) == 0, 'decimatepts')
        call check(itemgettbl(runs, 2_c_long, column) == 0, 'decimatepts')
        call check(column%x == 4 .and. column%low == 7 .and. column%high == 7, 'decimatepts')
        call freetbl(list)
        call freetbl(scaled)
        call freetbl(pixels)
        call freetbl(runs)
        call check(addring(ring, 1d0, 1d0) == 0, 'addring')
        call check(closering(ring) == 0, 'closering')
    end subroutine

    subroutine ringlets(path)
        character(len=*), intent(in) :: path
        integer(handle) :: ringlet
        real(c_double) :: record
        integer :: i
        call check(newringlet(path, 2_c_long, 8_c_long) == 0, 'newringlet')
        ringlet = openringlet(path, 9_c_long, 8_c_long)
        do i = 1, 3
            call check(pushringlet(ringlet, real(i, 8)) == 0, 'pushringlet')
        end do
        call check(countringlet(ringlet) == 2, 'countringlet')
        call check(getringlet(ringlet, 1_c_long, record) == 0 .and. record == 2, 'getringlet')
        call check(getringlet(ringlet, 2_c_long, record) == -1, 'getringlet beyond the end')
        call check(closeringlet(ringlet) == 0, 'closeringlet')
    end subroutine

    subroutine heaps(path)
        character(len=*), intent(in) :: path
        integer(handle) :: heap, names
        integer(c_int) :: n
        character(len=8) :: text
        real(8), parameter :: x = 0
        heap = openx(path//'  ', 'r+', 4096)
        call check(heap /= 0, 'openx')
        call check(putx(heap, 'station ', 'AAK  ', 3) == 0, 'putx')
        call check(putx(heap, 'station', 'AAK', 4) == -1, 'putx of more than there is')
        call check(putx_safe(heap, 'rate', transfer(2.5d0, text), 8) == 0, 'putx_safe')
        call check(getx(heap, 'station', text, n) == 0 .and. n == 3 .and. text == 'AAK', 'getx')
        call check(getx(heap, 'none', text, n) == -1, 'getx of none')
        n = closex(heap)
        heap = openx(path, 'r', 0)
        call check(readx(heap, 'rate', text, n) == 0, 'readx')
        call check(n == 8 .and. transfer(text, x) == 2.5d0, 'readx')
        names = namesx(heap)
        call check(maxtbl(names) == 2, 'namesx')
        call check(strgettbl(names, 0_c_long, text) == 4 .and. text == 'rate', 'namesx')
        call freetbl(names)
        call check(verifyx(heap) == 0, 'verifyx')
        call check(delx(heap, 'rate') == -1, 'delx of a heap to read')
        call check(closex(heap) == 0 .and. heap == 0, 'closex')
    end subroutine

    subroutine waveforms()
        integer(c_int32_t) :: samples(4) = [0, 1, 2, 3], decoded(4)
        integer(c_int) :: nbytes, nsamp
        integer(c_int32_t) :: checksum
        character(len=16) :: text
        character(len=5) :: short
        call check(cm6(samples, 4, text, nbytes) == 0, 'cm6')
        call check(nbytes == 12, 'cm6')
        call check(text == '+-++'//char(10)//'CHK2 6'//char(10), 'CM6 text')
        call check(um6(text, nbytes, decoded, nsamp, 4) == 4, 'um6')
        call check(nsamp == 4, 'CM6 samples')
        call check(all(decoded == samples), 'CM6 samples')
        call check(um6(text, nbytes, decoded, nsamp, 3) == -1, 'array too short')
        call check(cm6(samples, 4, short, nbytes) == -1, 'text too short')
        call check(nbytes == 12, 'text too short')
        call check(clear_register(0) == 0, 'reasons')
        checksum = 0
        nsamp = gse_checksum(samples, 4, checksum)
        call check(checksum == 6, 'gse_checksum')
        call check(cucsd(samples, 4, text, nbytes) == 0, 'cucsd')
        call check(nbytes == 8, 'cucsd')
        call check(uucsd(decoded, text, nbytes, 4) == 0, 'uucsd')
        call check(all(decoded == samples), 'UCSD samples')
        call check(cucsd_try(samples, 2, text, nbytes) == 0, 'cucsd_try')
        call check(cucsd_try(samples, 4, short, nbytes) == -1, 'too short for UCSD')
        call check(clear_register(0) == 0, 'UCSD reasons')
    end subroutine

    subroutine packed_samples()
        integer(c_int32_t) :: samples(21), decoded(21)
        integer(c_int) :: nbytes, nsamp, byte, bit
        character(len=100) :: bytes
        character(len=15) :: short
        samples = 7
        call check(ccanada(samples, 21, bytes, nbytes) == 0, 'ccanada')
        call check(nbytes == 16, 'ccanada')
        nsamp = 20
        call check(ucanada(bytes, nbytes, decoded, nsamp, 21) == 0, 'ucanada')
        call check(all(decoded == samples), 'Canadian samples')
        call check(ucanada(bytes, nbytes, decoded, nsamp, 20) == -1, 'array too short')
        call check(ccanada(samples, 21, short, nbytes) == -1, 'bytes too short')
        call check(gencompress(bytes, nbytes, samples, 21, 0) == 0, 'gencompress')
        call check(nbytes == 10, 'gencompress')
        decoded = 0
        call check(genuncompress(decoded, nsamp, 21, bytes, nbytes) == 0, 'genuncompress')
        call check(nsamp == 21 .and. all(decoded == samples), 'gencompress samples')
        call check(genuncompress(decoded, nsamp, 20, bytes, nbytes) == -1, 'array too short')
        call check(clear_register(0) == 0, 'packing reasons')
        byte = 1
        bit = 7
        call cc_bitpack(bytes, byte, bit, 8, ichar('A'))
        call check(bytes(2:2) == 'A' .and. byte == 2 .and. bit == 7, 'cc_bitpack')
    end subroutine
end module checks

program twins
    use checks
    implicit none
    character(len=512) :: argument
    integer(c_int) :: status
    call get_command_argument(1, argument)
    if (argument == 'die') then
        status = elog_init('/some/where/prog -v')
        call register_error(0, 'no instrument answers')
        call complain(0, 'this was heard  ')
        call register_error(0, 'nor does a second')
        call die(0, 'giving up')
    end if
    status = elog_init(' ')
    call check(status == 0, 'elog_init')
    call lists_of_numbers()
    call lists_of_strings()
    call lists_in_files(trim(argument))
    call data_search(trim(argument))
    call arrays()
    call cabinets_and_sets()
    call register()
    call strings()
    call renaming()
    call parameters(trim(argument)//'/tree.pf')
    call times()
    call records_of_fields()
    call time_strings()
    call units()
    call controls()
    call rings(trim(argument)//'/twins.ring')
    call ringlets(trim(argument)//'/twins.ringlet')
    call heaps(trim(argument)//'/twins.heap')
    call waveforms()
    call packed_samples()
    if (failures > 0) stop 1
end program twins
