@echo off
rem Runs the tests of KOVA Server on this machine; see README.md beside this
rem file. Run it as administrator.
"%~dp0kit\kit.exe" %*
set KOVA_CODE=%ERRORLEVEL%
rem A window of its own, made by a double click, stays until a key is pressed.
if "%~1"=="" pause
exit /b %KOVA_CODE%
