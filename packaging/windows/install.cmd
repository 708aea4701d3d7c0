@echo off
rem Installs the password expiration service in place of an older one, or with /remove removes it
rem again. Run it as an administrator.
setlocal
set "target=%SystemRoot%\pwlapse"
set "work=%SystemRoot%\System32"
if /i "%~1"=="/remove" goto remove

if not exist "%target%" mkdir "%target%"
sc query NRVPasswordExpiration >nul 2>nul
if errorlevel 1 goto copy
"%target%\pwLapseSvc.exe" -remove
rem Its process may take a moment to end.
ping -n 3 127.0.0.1 >nul

:copy
copy /y "%~dp0pwLapseSvc.exe" "%target%\pwLapseSvc.exe" >nul
if errorlevel 1 goto failed
copy /y "%~dp0pwlapse.exe" "%target%\pwlapse.exe" >nul
if errorlevel 1 goto failed
rem The service reads templates and writes logs in the system's folder. A site's own are kept.
if not exist "%work%\logfiles" mkdir "%work%\logfiles"
if not exist "%work%\NorvynExpirationEmail.html" copy "%~dp0NorvynExpirationEmail.html" "%work%" >nul
if not exist "%work%\NorvynExpirationEmail.txt" copy "%~dp0NorvynExpirationEmail.txt" "%work%" >nul
reg query "HKLM\Software\Policies\Kadro\PwsentryProMPE\PWExpiration" >nul 2>nul
if not errorlevel 1 goto install
reg import "%~dp0registry.reg" >nul 2>nul
if errorlevel 1 goto failed

:install
"%target%\pwLapseSvc.exe" -install
goto end

:remove
rem Settings, templates and logs stay.
"%target%\pwLapseSvc.exe" -remove
del "%target%\pwLapseSvc.exe" "%target%\pwlapse.exe"
rmdir "%target%"
goto end

:failed
echo Not installed. Run install.cmd as an administrator, in the folder of the unpacked zip.
exit /b 1

:end
endlocal
