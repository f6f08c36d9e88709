# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# The fixed paths of the installed product, declared once. The code takes
# them through base/ovfixedpaths.h (from the ovpaths.h made below), the
# install from these variables, dev/uninstall from BUILD/ovpaths.sh.
set(OV_LIBRARY_DIR "/Library")
# The classic bundle folder: every path of the product's own files hangs off it.
set(OV_BUNDLE_DIR "${OV_LIBRARY_DIR}/PreferencePanes/Orvane.prefPane")
set(OV_RESOURCES_DIR "${OV_BUNDLE_DIR}/Contents/Resources")
set(OV_SUPPORT_DIR "${OV_LIBRARY_DIR}/Application Support/Orvane")
set(OV_SOUNDS_DIR "${OV_LIBRARY_DIR}/Sounds")
# The set-user-ID helpers in the bundle's resources.
set(OV_HELPERS archive_table install_scripts remove_scripts install_crontab manual_backup)
# Every set-user-ID program: the helpers, and connect_volume beside automount.
set(OV_SETUID_PROGRAMS ${OV_HELPERS} connect_volume)

# The scheduled frequencies, in the order of an item's frequency column:
# the name the scripts and notices use, the word of the folders, logs and
# item types, anacron's period and delay (days, minutes), and which day
# field of its cron line the schedule's day sets.
set(OV_SCHEDULES "Daily daily 1 20 EveryDay" "Weekly weekly 7 25 Weekday" "Monthly monthly 30 30 MonthDay")

# Each schedule's folder in the support folder (".daily", ...), for the install.
set(OV_SCHEDULE_DIRS)
set(OV_SCHEDULE_ROWS)
foreach(schedule IN LISTS OV_SCHEDULES)
    string(REPLACE " " ";" fields "${schedule}")
    list(GET fields 0 name)
    list(GET fields 1 word)
    list(GET fields 2 period)
    list(GET fields 3 delay)
    list(GET fields 4 day)
    list(APPEND OV_SCHEDULE_DIRS "${OV_SUPPORT_DIR}/.${word}")
    string(APPEND OV_SCHEDULE_ROWS " \\\n    ROW(${name}, ${word}, \"${period}\\t${delay}\", ${day})")
endforeach()

configure_file(${CMAKE_CURRENT_LIST_DIR}/ovpaths.h.in ${CMAKE_BINARY_DIR}/base/ovpaths.h @ONLY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/ovpaths.sh.in ${CMAKE_BINARY_DIR}/ovpaths.sh @ONLY)
