// Every path that the daemon opens, makes or removes.
#pragma once

constexpr const char* szGateLinkPath = "/tmp/VernierLens";
constexpr const char* szFIFOPath = "/tmp/VernierLensFIFO";
constexpr const char* szPidPath = "/var/run/vernierlensd.pid";

constexpr const char* szFocusMotorPath = "/dev/focusmotor";
constexpr const char* szZoomMotorPath = "/dev/zoommotor";
constexpr const char* szIICPath = "/dev/i2c-2";  // of the temperature sensor, unless its configuration names another

constexpr const char* szInstancePath = "/var/run/vernierlensd.lock";

constexpr const char* szCapabilityPath = "/etc/conf.d/config_capability.xml";
constexpr const char* szImageFeaturePath = "/etc/conf.d/config_imagefeature.xml";
constexpr const char* szVideoInPath = "/etc/conf.d/config_videoin_c0.xml";
constexpr const char* szVideoModePath = "/etc/conf.d/config_videomode_c0.xml";
constexpr const char* szTemperaturePath = "/etc/conf.d/config_temperature.xml";
constexpr const char* szConfigPath = "/etc/conf.d/vernierlensd/config_vernierlensd.xml";
constexpr const char* szLensProfilePath = "/etc/conf.d/image_cfgs/c0/imgsys/mdp_lens_profile.xml";
constexpr const char* szIRCutPath = "/etc/conf.d/config_ircutctrl.xml";
constexpr const char* szPositionsPath = "/etc/conf.d/vernierlensd/vernierlensd.conf";
constexpr const char* szBackupPath = "/etc/conf.d/vernierlensd/vernierlensd_backup.conf";  // another program writes it
constexpr const char* szICSDriverPath = "/dev/icsdriver";
constexpr const char* szICSConfigPath = "/etc/conf.d/config_ics.xml";
constexpr const char* szICSPositionsPath = "/etc/conf.d/vernierlensd/ics.conf";
// %d stands for the number of the file.
constexpr const char* szTrackingCurvePaths = "/etc/conf.d/vernierlensd/tracking_curve_y%d";
constexpr const char* szTempCurvePaths = "/etc/conf.d/vernierlensd/temp_curve_y%d";
constexpr const char* szADCurvePaths = "/etc/conf.d/vernierlensd/ad_curve_y%d";
constexpr const char* szIRCurvePaths = "/etc/conf.d/vernierlensd/ir_curve_y%d";

constexpr const char* szFocusDefaultPath = "/etc/conf.d/vernierlensd/focus_default";
constexpr const char* szPanFocusPath = "/etc/conf.d/vernierlensd/pan_focus.tab";

constexpr const char* szStatusPath = "/mnt/flash/.VernierlensStatus";
constexpr const char* szFocusLogPath = "/etc/conf.d/vernierlensd/focusworking.log";
constexpr const char* szZoomLogPath = "/etc/conf.d/vernierlensd/zoomworking.log";

constexpr const char* szBlockKeyPath = "/usr/sbin/vernierlensd";  // the shared blocks' keys are made from it
