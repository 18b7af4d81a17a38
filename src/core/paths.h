// Every path that the daemon opens, makes or removes.
#pragma once

constexpr const char* szGateLinkPath = "/tmp/VernierLens";
constexpr const char* szFIFOPath = "/tmp/VernierLensFIFO";
constexpr const char* szPidPath = "/var/run/vernierlensd.pid";

constexpr const char* szFocusMotorPath = "/dev/focusmotor";
constexpr const char* szZoomMotorPath = "/dev/zoommotor";

constexpr const char* szCapabilityPath = "/etc/conf.d/config_capability.xml";
constexpr const char* szImageFeaturePath = "/etc/conf.d/config_imagefeature.xml";
constexpr const char* szVideoInPath = "/etc/conf.d/config_videoin_c0.xml";
constexpr const char* szVideoModePath = "/etc/conf.d/config_videomode_c0.xml";
constexpr const char* szConfigPath = "/etc/conf.d/vernierlensd/config_vernierlensd.xml";
constexpr const char* szPositionsPath = "/etc/conf.d/vernierlensd/vernierlensd.conf";
