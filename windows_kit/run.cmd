@echo off
rem Runs the kit: see README.txt.
setlocal
cd /d "%~dp0"
bin\windows_kit.exe %*
set result=%errorlevel%
if not "%~1"=="--quiet" pause
exit /b %result%
