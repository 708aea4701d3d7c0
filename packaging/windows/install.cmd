@echo off
rem Installs the password expiration service. Of one that is installed already the programs are
rem replaced; its account, start type, recovery actions and privileges stay as they are.
rem   install.cmd            installs or replaces
rem   install.cmd /remove    stops and removes the service and its programs
rem Run it as an administrator. The exit status is 0 when it is done, 1 when it is not (what was
rem there before then works as before), 2 for arguments that it does not know.
setlocal
set "service=NRVPasswordExpiration"
set "key=HKLM\SYSTEM\CurrentControlSet\Services\%service%"
set "source=HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\%service%"
set "target=%SystemRoot%\pwlapse"
set "work=%SystemRoot%\System32"
if "%~1"=="" goto install
if /i not "%~1"=="/remove" goto usage
if not "%~2"=="" goto usage
goto remove

:usage
echo Usage: install.cmd            installs the service, or replaces the programs of an installed one
echo        install.cmd /remove    removes the service; settings, templates and logs stay
exit /b 2

:install
rem First everything that can fail for lack of rights or room, while the old service still runs.
set "state=absent"
reg query "%key%" >nul 2>nul
if errorlevel 1 goto bring
set "image="
for /f "tokens=2*" %%a in ('reg query "%key%" /v ImagePath') do if not "%%~b"=="" set "image=%%~b"
if /i not "%image%"=="%target%\pwLapseSvc.exe" goto elsewhere
set "state=running"
sc query %service% | find "STOPPED" >nul
if not errorlevel 1 set "state=stopped"

:bring
if not exist "%target%" mkdir "%target%"
copy /y "%~dp0pwLapseSvc.exe" "%target%\pwLapseSvc.new" >nul
if errorlevel 1 goto notcopied
copy /y "%~dp0pwlapse.exe" "%target%\pwlapse.new" >nul
if errorlevel 1 goto notcopied
rem The service reads templates and writes logs in the system's folder. A site's own are kept.
if not exist "%work%\logfiles" mkdir "%work%\logfiles"
if not exist "%work%\NorvynExpirationEmail.html" copy "%~dp0NorvynExpirationEmail.html" "%work%" >nul
if not exist "%work%\NorvynExpirationEmail.txt" copy "%~dp0NorvynExpirationEmail.txt" "%work%" >nul
reg query "HKLM\Software\Policies\Kadro\PwsentryProMPE\PWExpiration" >nul 2>nul
if not errorlevel 1 goto stop
reg import "%~dp0registry.reg" >nul 2>nul
if errorlevel 1 goto notcopied

:stop
if not "%state%"=="running" goto replace
sc stop %service% >nul
call :await STOPPED
if errorlevel 1 goto notstopped

:replace
call :swap pwLapseSvc
if errorlevel 1 goto notreplaced
call :swap pwlapse
if errorlevel 1 goto notreplaced
rem As pwLapseSvc -install does it; a service of before may lack it.
reg add "%source%" /v EventMessageFile /t REG_SZ /d "%target%\pwLapseSvc.exe" /f >nul
reg add "%source%" /v TypesSupported /t REG_DWORD /d 7 /f >nul
if "%state%"=="stopped" goto done
if "%state%"=="absent" "%target%\pwLapseSvc.exe" -install
if "%state%"=="absent" goto verify
sc start %service% >nul
if errorlevel 1 goto notstarted
:verify
call :await RUNNING
if errorlevel 1 goto notstarted

:done
if exist "%target%\*.old" del /f /q "%target%\*.old" >nul 2>nul
if "%state%"=="running" echo The programs are replaced, and the service runs.
if "%state%"=="stopped" echo The programs are replaced. The service was stopped and stays so; "sc start %service%" starts it.
exit /b 0

:remove
reg query "%key%" >nul 2>nul
if errorlevel 1 goto delete
if exist "%target%\pwLapseSvc.exe" "%target%\pwLapseSvc.exe" -remove
call :awaitgone
if errorlevel 1 goto notremoved
:delete
if exist "%target%" rmdir /s /q "%target%"
if not exist "%target%" exit /b 0
echo The service is removed, but a program in %target% is in use. Run install.cmd /remove again.
exit /b 1

:elsewhere
echo Not installed. The service runs another program: "%image%".
echo Replace that one, or remove the service first ("pwLapseSvc -remove").
exit /b 1

:notcopied
call :clean
echo Not installed. Run install.cmd as an administrator, in the folder of the unpacked zip.
exit /b 1

:notstopped
call :clean
sc start %service% >nul 2>nul
echo Not installed. The service did not stop; the programs are those of before.
exit /b 1

:notreplaced
call :undo
echo Not installed. A program in %target% is in use; the programs are those of before.
exit /b 1

:notstarted
if "%state%"=="absent" goto notstartednew
sc stop %service% >nul 2>nul
call :await STOPPED
call :undo
echo Not installed. The new service does not start; the programs are those of before.
exit /b 1

:notstartednew
echo The service is not installed or does not start. The system's event log says why.
exit /b 1

rem call :swap NAME: puts NAME.new in the place of NAME.exe, which is kept as NAME.old. A program that
rem runs can be renamed, but not overwritten. Errorlevel 1, with NAME.exe as it was, when it cannot.
:swap
if exist "%target%\%1.exe" move /y "%target%\%1.exe" "%target%\%1.old" >nul 2>nul
if exist "%target%\%1.exe" exit /b 1
move /y "%target%\%1.new" "%target%\%1.exe" >nul 2>nul
if exist "%target%\%1.exe" exit /b 0
if exist "%target%\%1.old" move /y "%target%\%1.old" "%target%\%1.exe" >nul
exit /b 1

rem The programs of before take their places again, and the service runs as it did.
:undo
if exist "%target%\pwLapseSvc.old" move /y "%target%\pwLapseSvc.old" "%target%\pwLapseSvc.exe" >nul
if exist "%target%\pwlapse.old" move /y "%target%\pwlapse.old" "%target%\pwlapse.exe" >nul
if "%state%"=="running" sc start %service% >nul 2>nul
:clean
if exist "%target%\*.new" del /f /q "%target%\*.new"
exit /b 0

rem call :await STATE: waits for the service, at most about 30 seconds. Errorlevel 1: in vain.
:await
set "rounds=0"
:awaitnext
sc query %service% 2>nul | find "%1" >nul
if not errorlevel 1 exit /b 0
set /a rounds+=1
if %rounds% geq 30 exit /b 1
ping -n 2 127.0.0.1 >nul
goto awaitnext

:awaitgone
set "rounds=0"
:awaitgonenext
reg query "%key%" >nul 2>nul
if errorlevel 1 exit /b 0
set /a rounds+=1
if %rounds% geq 30 exit /b 1
ping -n 2 127.0.0.1 >nul
goto awaitgonenext

:notremoved
echo The service is not removed. Run install.cmd as an administrator; close the services console.
exit /b 1
