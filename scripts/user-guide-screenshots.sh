#!/usr/bin/env bash
# Makes the pictures of docs/user-guide.md from the running program: runs the window and dialog
# tests, which show the real widgets with simulated cameras and save screenshots of what they
# check into BUILD/tests/screenshots, then copies the ones the guide shows into docs/images.
# Run after a build (make build), as root so the tests get their own network namespaces.
set -euo pipefail
build=${1:-build}
root=$(cd "$(dirname "$0")/.." && pwd)
shots="$build/tests/screenshots"
images="$root/docs/images"

(cd "$build" && ctest --output-on-failure -R \
    '^(tst_viewlanewindow|tst_hostfindings|tst_settingsdialogs|tst_networkdialogs|tst_firmwarexmldialogs|tst_lutprogramming|tst_devicesettingsfile)$')

mkdir -p "$images"
for name in mainwindow_connected mainwindow_host_findings dialog_recording_settings \
    dialog_device_discovery dialog_about_release_notes dialog_force_ip dialog_force_reboot \
    dialog_ip_configuration dialog_firmware_upgrade dialog_program_lut \
    dialog_save_device_settings dialog_load_device_settings; do
    if [ ! -f "$shots/$name.png" ]; then
        echo "user-guide-screenshots: no $shots/$name.png; did its test run?" >&2
        exit 1
    fi
    cp "$shots/$name.png" "$images/$name.png"
done
echo "user-guide-screenshots: pictures copied to $images"
