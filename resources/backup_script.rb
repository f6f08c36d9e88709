#!/usr/bin/ruby --disable-gems
# encoding: ASCII-8BIT
# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
#
# An Orvane backup. The Orvane pane makes this script from its template and
# installs it; cron, anacron or manual_backup run it as root. Paths are kept
# as the bytes that name them on disk.

# Every path and every line of output is bytes: a name is whatever bytes
# name it on disk, in any locale cron or manual_backup gives the run.
Encoding.default_external = Encoding::BINARY
Encoding.default_internal = nil

# Libraries load when they are needed: a run with nothing to copy should
# cost little more than the copy tool itself.
autoload :Open3, "open3"
autoload :Etc, "etc"
autoload :Syslog, "syslog"

frequency = "Daily"
#ov_frequency
backupCommand = "/usr/local/bin/psync"
#ov_backupCommand
sourceFolders = []
#ov_sourceFolders
destFolders = []
#ov_destFolders
exclusions = []
#ov_exclusions
removedExclusions = []
#ov_removedExclusions
logfile = "/var/log/orvane_daily.log"
#ov_logfile
lastBackup = "/Library/Application Support/Orvane/.daily/.lastbackup"
#ov_lastBackup
lastRun = "/Library/Application Support/Orvane/.daily/.lastrun"
#ov_lastRun
disksFile = "/Library/Application Support/Orvane/.daily/.disks"
#ov_disks
archiveRecord = "/Library/Application Support/Orvane/.daily/.archives"
#ov_archiveRecord
runFlag = "/tmp/ov_Daily.run"
#ov_runFlag
errorFile = "/var/log/.orvane_daily.err"
#ov_errorFile
progressFile = "/tmp/ov_Daily.progress"
#ov_progressFile
resourcesFolder = "/Library/PreferencePanes/Orvane.prefPane/Contents/Resources"
#ov_resources
toastApplicationName = "Toast Titanium"
#ov_toastApplicationName
username = "root"
#ov_username
remoteBackup = false
#ov_remoteBackup
showProgress = false
repairPermissions = false
promptBeforeBackup = false
shouldWaitUntilAway = false
autoConnect = false
remoteServerName = ""
remoteAccountName = ""
remoteVolumeName = ""
shouldArchive = false
shouldArchive = shouldArchive
maxArchives = 0
safetyNetFolder = ""
safetyNetFolder = safetyNetFolder
archiveContents = ""
runKind = "scheduled"

class OrvaneBackup
  RESOURCES = "/Library/PreferencePanes/Orvane.prefPane/Contents/Resources"
  AUTOMOUNT = File.join(RESOURCES, "automount")
  # Below this much free space a destination counts as full.
  MIN_FREE_BYTES = 1024 * 1024
  # Waiting for the user to be away ends after this long.
  AWAY_SECONDS = 10 * 60
  MAX_WAIT_SECONDS = 6 * 60 * 60
  # The question whether to delete ends by itself after ten minutes; the
  # run waits a little longer than that, never for ever.
  ASK_SECONDS = 11 * 60
  FREQUENCIES = %w[Daily Weekly Monthly].freeze
  CONTENTS = { "Everything" => "everything", "Changed" => "changed", "Deleted" => "deleted" }.freeze
  # What psync may leave at a target besides the backup itself.
  PSYNC_ENTRIES = %w[.psync-work .psync-attributes].freeze
  # rsync's --info=progress2 line: bytes, percent, rate, time, and once a
  # file has gone "(xfr#N, to-chk=LEFT/TOTAL)" (ir-chk while still listing).
  PROGRESS_LINE = /\A\s*([\d,]+)\s+(\d+)%.*?(?:[it][or]-chk=(\d+)\/(\d+))?\)?\s*\z/
  # At most this many lines of one kind of warning from one copy reach the
  # error file; the log has them all.
  MAX_LINES = 20

  # What went wrong with a file or folder, in a user's words.
  REASONS = {
    "ENOENT" => "it does not exist", "EACCES" => "permission was refused", "EPERM" => "it is not permitted",
    "ENOSPC" => "the disk is full", "EDQUOT" => "the disk quota is used up", "EROFS" => "the disk is read-only",
    "EIO" => "the disk could not be read or written", "ENOTDIR" => "part of its path is not a folder",
    "EISDIR" => "a folder is in its place", "ELOOP" => "it is a symbolic link, which is never followed",
    "EEXIST" => "something else is already in its place", "ENOTEMPTY" => "the folder is not empty",
    "EBUSY" => "it is in use", "ETXTBSY" => "it is in use", "ENAMETOOLONG" => "its name is too long",
    "ENOTCONN" => "its disk is no longer connected", "ESTALE" => "its disk is no longer connected",
    "ENODEV" => "its disk is not there", "ENXIO" => "its disk is not there",
    "EMFILE" => "too many files are open", "ENFILE" => "too many files are open",
    "ENOMEM" => "the computer ran out of memory", "EAGAIN" => "the computer ran out of processes",
    "EXDEV" => "it lies on another disk", "ETIMEDOUT" => "the server did not answer in time",
    "EHOSTDOWN" => "the server cannot be reached", "EHOSTUNREACH" => "the server cannot be reached",
    "ECONNREFUSED" => "the server refused the connection", "EPIPE" => "the other side stopped listening",
    "EINVAL" => "the request was refused as invalid", "EFBIG" => "the file is too big for the disk"
  }.freeze
  SIGNALS = {
    "SIGTERM" => "the system asked it to stop", "SIGINT" => "it was interrupted",
    "SIGHUP" => "the session that started it ended", "SIGQUIT" => "it was asked to quit"
  }.freeze

  attr_reader :report

  def initialize(settings)
    @s = settings
    @frequency = FREQUENCIES.include?(settings[:frequency]) ? settings[:frequency] : "Daily"
    @report = []
    @errors = 0
    @cautions = 0
    @started = Time.now
    @disks = nil
    @archives = []
    @progress_written = nil
    @progress_notice = nil
  end

  def manual? = @s[:runKind] == "manual"
  def mirror? = command_flags.include?("d")
  def psync = @s[:backupCommand].split(" ").first
  def command_flags = @s[:backupCommand].split(" ")[1..].to_a.select { |a| a.start_with?("-") }.join.delete("-")
  def notice_tool = File.join(@s[:resourcesFolder], "orvane-notice")
  def archive_name = "#{@started.strftime('%Y-%m-%d %H.%M.%S')} #{@frequency}"

  def self.bytes(text) = text.to_s.b
  def self.plural(count, word) = "#{count} #{word}#{count == 1 ? '' : 's'}"

  # A failure in words: never an exception's own text, which names the
  # implementation. What no user can act on goes to the system log whole.
  def self.reason(exception)
    case exception
    when RemoteVolumeRefused
      exception.to_s
    when SystemCallError
      name = exception.class.name.to_s.split("::").last
      REASONS[name] || SystemCallError.new(nil, exception.errno).message.sub(/\A[A-Z]/) { |c| c.downcase }.sub(/ - .*\z/m, "")
    when SignalException
      SIGNALS[exception.signm] || "it was stopped"
    else
      begin
        Syslog.open("orvane", Syslog::LOG_PID, Syslog::LOG_DAEMON) unless Syslog.opened?
        Syslog.err("%s", "#{exception.class}: #{exception.message} #{exception.backtrace&.first(4)&.join(' < ')}".b)
      rescue StandardError
        nil
      end
      "a fault in the backup script itself (its details are in the system log)"
    end
  end

  def self.reason_of_errno(number) = reason(SystemCallError.new(nil, number))

  def reason(exception) = OrvaneBackup.reason(exception)

  # --- Files ---------------------------------------------------------------
  #
  # The script itself writes only into folders that root alone may write
  # (/var/log, the frequency's folder of the support folder) and, for the
  # run flag and the progress file, /tmp, where each is made anew with
  # O_EXCL and O_NOFOLLOW. Everything else at a destination or in the Safety
  # Net folder is psync's, by descriptor.

  # The administrators' group: logs name files of every user, so they are
  # for root and administrators only.
  def self.admin_gid
    return @admin_gid if defined?(@admin_gid)
    @admin_gid = %w[admin sudo wheel].lazy.filter_map { |name| (Etc.getgrnam(name).gid rescue nil) }.first || 0
  end

  # A log or error file, root's and readable by the administrators only,
  # whatever modes it had.
  def self.open_private(path, flags)
    file = File.open(path, flags | File::NOFOLLOW | File::BINARY, 0o640)
    stat = file.stat
    begin
      file.chown(0, admin_gid) unless stat.uid.zero? && stat.gid == admin_gid
      file.chmod(0o640) unless (stat.mode & 0o7777) == 0o640
    rescue Errno::EPERM
      nil # not root: a test or a look by hand
    end
    file
  end

  # Whatever stands at a path in /tmp goes aside in one rename, unwalked
  # however deep it is (root may rename anything in the sticky /tmp); what
  # was a file, a link or an empty folder then goes. The new name is not
  # guessable. Returns where a folder that still holds anything was put.
  def self.move_aside(path)
    stat = File.lstat(path)
  rescue Errno::ENOENT, Errno::ENOTDIR
    nil
  else
    aside = File.join(File.dirname(path), ".#{File.basename(path)}.stale-#{Random.urandom(12).unpack1('H*')}")
    File.rename(path, aside)
    begin
      stat.directory? ? Dir.rmdir(aside) : File.unlink(aside)
      nil
    rescue SystemCallError
      aside
    end
  end

  # Makes a file anew in /tmp (O_EXCL, O_NOFOLLOW), whatever stood at its
  # path. Returns what stood there and was kept aside, and the file's stat.
  def self.make_fresh(path, data, mode = 0o644)
    kept = nil
    3.times do
      kept ||= move_aside(path)
      begin
        stat = File.open(path, File::WRONLY | File::CREAT | File::EXCL | File::NOFOLLOW | File::BINARY, mode) do |f|
          f.write(data)
          f.stat
        end
        return [kept, stat]
      rescue Errno::EEXIST
        next # someone was quicker; aside with it too
      end
    end
    raise Errno::EEXIST
  end

  # Replaces a file in one step: a new file beside it, renamed over it. A
  # reader sees the old content or the new, never a part.
  def self.replace(path, data, mode = 0o644)
    temporary = "#{path}.#{Process.pid}.#{Random.urandom(8).unpack1('H*')}"
    File.open(temporary, File::WRONLY | File::CREAT | File::EXCL | File::NOFOLLOW | File::BINARY, mode) { |f| f.write(data) }
    begin
      File.rename(temporary, path)
    rescue Errno::EISDIR, Errno::ENOTEMPTY, Errno::EEXIST
      move_aside(path) # a folder was planted there
      File.rename(temporary, path)
    end
  rescue SystemCallError
    File.unlink(temporary) rescue nil
    raise
  end

  # Removes a file this run made, if it is still the one it made.
  def self.remove_own(path, made)
    stat = File.lstat(path)
    File.unlink(path) if stat.file? && stat.uid.zero? && (made.nil? || [stat.dev, stat.ino] == [made.dev, made.ino])
  rescue SystemCallError
    nil
  end

  # --- The report ----------------------------------------------------------

  def log(message)
    line = "#{Time.now.strftime('%Y-%m-%d %H:%M:%S')} #{@frequency}: #{OrvaneBackup.bytes(message)}\n".b
    file = OrvaneBackup.open_private(@s[:logfile], File::WRONLY | File::APPEND | File::CREAT)
    begin
      file.write(line)
    ensure
      file.close
    end
  rescue SystemCallError => e
    $stderr.write("orvane: cannot write the log #{@s[:logfile]} (#{reason(e)}): ".b + line.to_s)
  end

  # An error: something was not backed up as it should have been.
  def error(message)
    @errors += 1
    @report << OrvaneBackup.bytes(message)
    log("ERROR: #{OrvaneBackup.bytes(message)}")
    nil
  end

  # A caution: the backup was made, but something needs the user's eye.
  def caution(message)
    @cautions += 1
    @report << OrvaneBackup.bytes(message)
    log("WARNING: #{OrvaneBackup.bytes(message)}")
    nil
  end

  def result
    return "errors" if @errors.positive?
    @cautions.positive? ? "caution" : "complete"
  end

  # --- The run ---------------------------------------------------------------

  # The whole run. Returns the exit status: 0 done, 1 done with errors or
  # cautions, 3 not run (the user declined it).
  def run
    begin
      wait_until_away if @s[:shouldWaitUntilAway]
      if @s[:promptBeforeBackup] && !user_agrees?
        log("skipped: the user chose not to back up now")
        return 3
      end
    rescue StandardError => e
      log("could not ask the user first (#{reason(e)}); backing up anyway")
    end
    # What the last run left, before this one changes it.
    @before = { marker: (File.binread(@s[:lastBackup], 64).strip rescue nil), errors: File.exist?(@s[:errorFile]) }
    begin
      kept = OrvaneBackup.move_aside(@s[:progressFile])
      log("something left at #{@s[:progressFile]} was put aside as #{kept}") if kept
      kept, @flag = OrvaneBackup.make_fresh(@s[:runFlag], "#{Process.pid}\n")
      log("something left at #{@s[:runFlag]} was put aside as #{kept}") if kept
    rescue StandardError => e
      error("the run flag #{@s[:runFlag]} could not be made (#{reason(e)}); the pane will not show this backup as running")
    end
    begin
      File.unlink(@s[:errorFile]) rescue nil
      log("#{manual? ? 'manual ' : ''}backup started (#{OrvaneBackup.plural(@s[:sourceFolders].size, 'folder')})")
      back_up_all
    rescue StandardError, ScriptError, NoMemoryError, SystemStackError => e
      error("the backup stopped unexpectedly (#{reason(e)}); folders not yet backed up keep their earlier backup")
    rescue SignalException => e
      error("the backup was stopped before it ended (#{reason(e)}); folders not yet backed up keep their earlier backup")
    ensure
      finish
    end
    result == "complete" ? 0 : 1
  end

  def back_up_all
    # Only a run whose items are on the remote volume mounts or proves it.
    mount_remote_volume if @s[:remoteBackup]
    if @s[:repairPermissions]
      log("repair permissions: every copy keeps each file's owner, group and permissions, and " \
          "Linux has no store of system permissions to repair; nothing more to do")
    end
    if @s[:shouldArchive]
      @net_problem = prepare_safety_net
      remember_archives([archive_name]) unless @net_problem
    end
    @s[:sourceFolders].each_with_index do |source, i|
      destination = @s[:destFolders][i]
      begin
        back_up(OrvaneBackup.bytes(source), OrvaneBackup.bytes(destination), i)
      rescue StandardError => e
        error("#{source} -> #{destination}: the backup of this folder stopped unexpectedly " \
              "(#{reason(e)}); files not yet copied keep their earlier version")
      end
    end
  end

  def finish
    close_progress
    prune_archives if @s[:shouldArchive] && !@net_problem
    save_disks
    unmount_remote_volume
    stamp = @started.strftime("%m/%d/%y")
    begin
      OrvaneBackup.replace(@s[:lastBackup], stamp)
      write_last_run(stamp)
    rescue StandardError => e
      error("the date of this backup could not be written to #{@s[:lastBackup]} (#{reason(e)})")
    end
    write_error_file
    summary = [(OrvaneBackup.plural(@errors, "error") if @errors.positive?),
               (OrvaneBackup.plural(@cautions, "warning") if @cautions.positive?)].compact.join(" and ")
    log(summary.empty? ? "backup complete" : "backup finished with #{summary}")
    # The notice stays up as long as the user likes; the run does not wait.
    notice_in_background("--finished", @frequency, result, *kind_argument, input: @report.first(10).map { |l| "#{l}\n" }.join)
  rescue StandardError => e
    log("ERROR: the end of the run failed (#{reason(e)})")
  ensure
    OrvaneBackup.remove_own(@s[:runFlag], @flag) if @flag
  end

  def write_error_file
    return if @report.empty?
    stamp = Time.now.strftime("%Y-%m-%d %H:%M:%S")
    File.unlink(@s[:errorFile]) rescue nil
    file = OrvaneBackup.open_private(@s[:errorFile], File::WRONLY | File::CREAT | File::EXCL)
    begin
      file.write(@report.map { |line| "#{stamp} #{line}\n".b }.join.b)
    ensure
      file.close
    end
  rescue StandardError => e
    log("ERROR: the error file #{@s[:errorFile]} could not be written (#{reason(e)})")
  end

  # Beside the last-backup marker, the last run of each kind: "scheduled
  # DATE RESULT" and "manual DATE RESULT" (RESULT complete, errors or
  # caution). A manual run refreshes the daily marker, so the pane reads
  # the scheduled line for the status of the daily backups.
  def write_last_run(stamp)
    runs = {}
    begin
      File.binread(@s[:lastRun], 4096).each_line do |line|
        kind, rest = line.chomp.split(" ", 2)
        runs[kind] = rest if %w[scheduled manual].include?(kind) && rest
      end
    rescue Errno::ENOENT
      # The marker of a run before the kind was kept: a scheduled one.
      if @before[:marker]&.match?(%r{\A\d\d/\d\d/\d\d\z})
        runs["scheduled"] = "#{@before[:marker]} #{@before[:errors] ? 'errors' : 'complete'}"
      end
    end
    runs[manual? ? "manual" : "scheduled"] = "#{stamp} #{result}"
    OrvaneBackup.replace(@s[:lastRun], runs.map { |kind, rest| "#{kind} #{rest}\n" }.join)
  end

  # --- One pair ----------------------------------------------------------------

  # One source onto one destination.
  def back_up(source, destination, index)
    if destination == "Toast"
      return error("#{source}: the disc was not burned: #{@s[:toastApplicationName]} does not exist on this system")
    end
    unless File.directory?(source)
      return error("#{source}: the source folder does not exist (is its disk connected?); it was not backed up")
    end
    unless File.directory?(destination)
      return error("#{destination}: the destination folder is missing (is its disk connected?); #{source} was not backed up")
    end
    if nested?(source, destination)
      return error("#{source} and #{destination} lie inside each other; nothing was copied")
    end
    source_disk = disk_of(source)
    destination_disk = disk_of(destination)
    if known_disk(destination) && known_disk(destination) != destination_disk
      return error("#{destination}: the disk that held this backup is not there (the folder now lies on " \
                   "#{destination_disk}, at the last backup on #{known_disk(destination)}); is its disk connected? " \
                   "#{source} was not backed up and nothing was written there")
    end
    if mirror? && empty_folder?(source) && !(Dir.children(destination) - PSYNC_ENTRIES).empty?
      return error("#{source}: the source folder is empty (is its disk connected?); it was not mirrored, " \
                   "so nothing at #{destination} was deleted")
    end
    if known_disk(source) && known_disk(source) != source_disk
      return error("#{source}: the source folder is not on the disk it was on at the last backup (now #{source_disk}, " \
                   "then #{known_disk(source)}); is its disk connected? It was not backed up and nothing at #{destination} was changed")
    end
    free = free_bytes(destination)
    if free && free < MIN_FREE_BYTES
      return error("#{destination}: the destination is full (#{free} bytes free); #{source} was not backed up")
    end
    if @s[:shouldArchive] && @net_problem
      return error("#{source}: not backed up, so that no earlier version at #{destination} is lost: #{@net_problem}")
    end
    unless File.file?(psync) && File.executable?(psync)
      return error("#{source} -> #{destination}: the copy tool #{psync} is not installed; nothing was copied")
    end

    options = []
    if @s[:shouldArchive]
      options += ["--safety-net=#{@s[:safetyNetFolder]}", "--safety-net-owner=#{@s[:username]}",
                  "--archive=#{archive_name}", "--keep=#{CONTENTS.fetch(@s[:archiveContents].to_s, 'everything')}"]
    end
    inside = safety_net_inside(source)
    options << "--exclude-path=#{inside}" if inside
    options += exclusion_options(source, index)
    options << "--hold-deletions" if mirror?
    options << "--progress" if @s[:showProgress]
    report_progress("0 0 0 0 #{index + 1} #{@s[:sourceFolders].size}", force: true)

    @copy = { pair: "#{source} -> #{destination}", source: source, destination: destination, index: index,
              warnings: 0, reason: nil, held: nil, answer: nil }
    status = run_copy([psync, *@s[:backupCommand].split(" ")[1..], *options, source, destination])
    copied(status)
    if [0, 1, 3].include?(status.exitstatus)
      remember_disk(source, source_disk)
      remember_disk(destination, destination_disk)
    end
  rescue SystemCallError => e
    error("#{source} -> #{destination}: #{reason(e)}; files not yet copied keep their earlier version")
  end

  # What psync's exit status says about the pair.
  def copied(status)
    pair = @copy[:pair]
    case status.exitstatus
    when 0
      log("#{pair}: done")
    when 1
      if @copy[:warnings].positive?
        log("#{pair}: done, with the warnings above")
      else
        caution("#{pair}: done, but some files vanished or could not be read (see the log)")
      end
    when 3
      caution(held_text)
    when 4
      error("#{pair}: the destination became full; files not yet copied keep their earlier version")
    when nil
      error("#{pair}: the copy was stopped before it ended; files not yet copied keep their earlier version")
    else
      why = @copy[:reason]&.delete_suffix("; files not yet copied keep their earlier version") ||
            "the copy tool gave no reason (it ended with status #{status.exitstatus})"
      error("#{pair}: the copy failed: #{why}; files not yet copied keep their earlier version")
    end
  end

  def held_text
    count = @copy[:held] || 0
    one = count == 1
    why = @copy[:answer] == :keep ? "Keep was chosen" : "nobody answered whether to delete #{one ? 'it' : 'them'}"
    "#{OrvaneBackup.plural(count, 'file')} in #{@copy[:destination]} #{one ? 'is' : 'are'} no longer in #{@copy[:source]}; " \
      "#{one ? 'it was' : 'they were'} kept in the backup, since #{why}. The next backup asks again."
  end

  # Each entry of the pair's exclusions as psync takes it: one beginning
  # with "/" is a path inside the source, any other a pattern; those the
  # user also wants gone from the backup are dropped rather than left out.
  def exclusion_options(source, index)
    removed = Array(@s[:removedExclusions][index]).map { |e| OrvaneBackup.bytes(e) }
    top = source == "/" ? "" : source.chomp("/")
    Array(@s[:exclusions][index]).flat_map do |entry|
      entry = OrvaneBackup.bytes(entry)
      kind = removed.include?(entry) ? "drop" : "exclude"
      next [] if entry.empty?
      next ["--#{kind}=#{entry}"] unless entry.start_with?("/")
      path = entry.sub(%r{/+\z}, "")
      unless path.start_with?("#{top}/") && path.size > top.size + 1
        log("#{source}: the exclusion #{entry} does not lie inside this source; it is ignored")
        next []
      end
      ["--#{kind}-path=#{path.delete_prefix("#{top}/")}"]
    end
  end

  # Runs psync, logging what it says as it says it, turning its progress
  # into the progress file and answering its question about deletions.
  def run_copy(command)
    pending = "".b
    IO.popen(command, "r+b", err: %i[child out]) do |io|
      io.close_write unless command.include?("--hold-deletions")
      loop do
        pending << io.readpartial(65_536)
        while (cut = pending.index(/[\r\n]/))
          copy_line(pending.slice!(0, cut + 1).chomp("\n").chomp("\r"), io)
        end
      rescue EOFError
        copy_line(pending, io) unless pending.empty?
        break
      end
    end
    $?
  end

  def copy_line(line, io)
    return if line.strip.empty?
    if (m = line.match(PROGRESS_LINE))
      bytes_done = m[1].delete(",").to_i
      percent = m[2].to_i
      bytes_total = percent.positive? ? bytes_done * 100 / percent : bytes_done
      total = m[4].to_i
      done = m[3] ? total - m[3].to_i : 0
      report_progress("#{done} #{total} #{bytes_done} #{bytes_total} #{@copy[:index] + 1} #{@s[:sourceFolders].size}")
      return
    end
    log("  #{line}")
    case line
    when /\Apsync: hold (\d+)\z/
      @copy[:held] = Regexp.last_match(1).to_i
      answer_hold(io)
    when /\Apsync: kept \d+ files? in (.+)\z/
      @archives << Regexp.last_match(1) unless @archives.include?(Regexp.last_match(1))
    when /\Apsync: (not copied|not kept): /
      @copy[:warnings] += 1
      caution("#{@copy[:pair]}: #{line.delete_prefix('psync: ')}") if @copy[:warnings] <= MAX_LINES
      caution("#{@copy[:pair]}: more was not copied or not kept (see the log)") if @copy[:warnings] == MAX_LINES + 1
    when /\Apsync: (journal|full walk) /, /\Apsync: skipped /
      nil
    when /\Apsync: (.+)\z/
      @copy[:reason] = Regexp.last_match(1)
    end
  end

  # psync holds the deletions of a mirror that would delete much: the user
  # says whether they go. Only "delete" deletes.
  def answer_hold(io)
    count = @copy[:held]
    log("#{@copy[:pair]}: #{OrvaneBackup.plural(count, 'file')} would be deleted from the backup; asking #{@s[:username]}")
    @copy[:answer] = ask_deletions(count)
    log("#{@copy[:pair]}: " + { delete: "the user chose Delete", keep: "the user chose Keep" }.fetch(@copy[:answer], "nobody answered"))
    io.write(@copy[:answer] == :delete ? "delete\n" : "keep\n")
  rescue Errno::EPIPE
    nil
  ensure
    io.close_write unless io.closed?
  end

  def ask_deletions(count)
    command = notice_command("--ask-deletions", count.to_s, @copy[:destination], @copy[:source], @frequency, *kind_argument)
    return :unanswered unless command
    reader, writer = IO.pipe
    pid = Process.spawn(*command, in: reader, out: File::NULL, err: File::NULL)
    reader.close
    deadline = Process.clock_gettime(Process::CLOCK_MONOTONIC) + ASK_SECONDS
    status = nil
    until (status = Process.wait2(pid, Process::WNOHANG)&.last)
      break if Process.clock_gettime(Process::CLOCK_MONOTONIC) > deadline
      sleep 0.2
    end
    unless status
      # Its standard input ends: the notice goes, and so does the program.
      writer.close
      Process.kill("TERM", pid) rescue nil
      status = Process.wait2(pid).last
    end
    { 0 => :delete, 1 => :keep }.fetch(status.exitstatus, :unanswered)
  rescue SystemCallError => e
    log("the question could not be asked (#{reason(e)})")
    :unanswered
  ensure
    writer&.close unless writer&.closed?
  end

  def empty_folder?(folder) = Dir.children(folder).empty?

  def nested?(a, b)
    ra = File.realpath(a).chomp("/") + "/"
    rb = File.realpath(b).chomp("/") + "/"
    ra.start_with?(rb) || rb.start_with?(ra)
  end

  # The bytes a user may still write on the folder's file system, nil when
  # unknown. statvfs(3) itself where its layout is known (a 64-bit C
  # library: f_bsize, f_frsize, f_blocks, f_bfree, f_bavail, 8 bytes each),
  # else stat(1), whose start costs some 1-2 % of a run with little to copy.
  def free_bytes(folder)
    if (statvfs = OrvaneBackup.statvfs)
      buffer = "\0".b * 256
      return nil unless statvfs.call("#{folder}\0".b, buffer).zero?
      _, fragment, _, _, available = buffer.unpack("Q<5")
      return available * fragment
    end
    output = IO.popen(["/usr/bin/stat", "-f", "-c", "%a %S", folder], "rb", err: File::NULL, &:read)
    return nil unless $?.success?
    available, block = output.split.map(&:to_i)
    available * block
  end

  def self.statvfs
    return @statvfs if defined?(@statvfs)
    @statvfs = nil
    return nil unless [1].pack("J") == [1].pack("Q<")
    require "fiddle"
    @statvfs = Fiddle::Function.new(Fiddle::Handle::DEFAULT["statvfs"], [Fiddle::TYPE_VOIDP, Fiddle::TYPE_VOIDP], Fiddle::TYPE_INT)
  rescue LoadError, StandardError
    @statvfs = nil
  end

  # --- Disks -------------------------------------------------------------

  # The file system a folder lies on: its UUID when it has one, else its
  # type, source and the part of it mounted, and for a file system that
  # names its owner (FUSE's serving user, an SMB mount's owner and account)
  # that owner too, so that someone else's look-alike of a volume (same type
  # and source) is told apart from it. An empty mount point lies on the file
  # system below it, and so is told apart from its disk. A folder on the
  # remote volume that automount could not prove this run is refused.
  def disk_of(folder)
    # The path as given first: what is mounted there may be anyone's, and
    # may say it is a link to anywhere.
    refuse_unproven(File.expand_path(folder))
    real = File.realpath(folder)
    refuse_unproven(real)
    stat = File.stat(real)
    device = "#{stat.dev_major}:#{stat.dev_minor}"
    mount = OrvaneBackup.mounts.select do |m|
      m[:device] == device && (m[:point] == "/" || real == m[:point] || real.start_with?("#{m[:point]}/"))
    end.max_by { |m| m[:point].size }
    return "device #{device}" unless mount
    uuid = OrvaneBackup.uuid_of(mount[:source])
    return "UUID #{uuid}" if uuid
    before = "#{mount[:type]} #{mount[:source]} #{mount[:root]}"
    owner = mount[:options].split(",").select { |o| o.start_with?("user_id=", "uid=", "username=") }
    return before if owner.empty?
    identity = "#{before} #{owner.join(' ')}"
    # Remembered before identities named owners (and before rclone's mounts
    # named their server): the same disk if root or this script's user owns
    # it, and now named in full.
    known = known_disk(folder)
    if known && known != identity && trusted_owner?(owner) &&
       (known == before || (remote_proven?(real) && known == "#{mount[:type]} orvane:#{@s[:remoteVolumeName]} #{mount[:root]}"))
      remember_disk(folder, identity)
    end
    identity
  end

  def refuse_unproven(path)
    return unless @remote_refused && (path == remote_point || path.start_with?("#{remote_point}/"))
    raise RemoteVolumeRefused, "it lies on the remote volume #{@s[:remoteVolumeName]}, which could not be used " \
                               "(#{@remote_refused}), so nothing was written there"
  end

  def trusted_owner?(owner)
    uid = owner.find { |o| o.start_with?("user_id=", "uid=") }.to_s.split("=").last
    uid.nil? || uid == "0" || uid == (Etc.getpwnam(@s[:username]).uid.to_s rescue nil)
  end

  def remote_proven?(real) = @remote_proven && (real == remote_point || real.start_with?("#{remote_point}/"))

  def self.mounts
    File.binread("/proc/self/mountinfo").each_line.filter_map do |line|
      fields = line.split(" ")
      dash = fields.index("-")
      next unless dash && fields.size > dash + 2
      unescape = ->(f) { f.gsub(/\\(\d{3})/) { Regexp.last_match(1).to_i(8).chr } }
      { device: fields[2], root: unescape[fields[3]], point: unescape[fields[4]], type: fields[dash + 1],
        source: unescape[fields[dash + 2]], options: fields[dash + 3].to_s }
    end
  end

  def self.uuid_of(source)
    return nil unless source.start_with?("/dev/")
    device = File.realpath(source)
    folder = "/dev/disk/by-uuid"
    Dir.children(folder).find { |uuid| (File.realpath(File.join(folder, uuid)) rescue nil) == device }
  rescue SystemCallError
    nil
  end

  def disks
    @disks ||= begin
      fields = File.binread(@s[:disksFile]).split("\0")
      fields.each_slice(2).select { |pair| pair.size == 2 }.to_h
    rescue SystemCallError
      {}
    end
  end

  def known_disk(folder) = disks[folder]

  def remember_disk(folder, disk)
    disks[folder] = disk
    @disks_changed = true
  end

  def save_disks
    return unless @disks_changed
    OrvaneBackup.replace(@s[:disksFile], @disks.map { |folder, disk| "#{folder}\0#{disk}\0" }.join.b, 0o600)
  rescue StandardError => e
    error("the disks of this backup could not be remembered in #{@s[:disksFile]} (#{reason(e)}); " \
          "a disk that is not connected may go unnoticed next time")
  end

  # --- The Safety Net ----------------------------------------------------
  #
  # psync keeps every file a copy replaces or deletes, in the same pass, in
  # <Safety Net folder>/<YYYY-MM-DD HH.MM.SS> <Frequency>/<destination
  # without its leading "/">/<path in the destination>, and removes old
  # archives; both by descriptor, as the folder's owner holds it. The
  # script makes a missing folder (as its owner), and decides which
  # archives go: by the order in which runs made them, which the archive
  # record keeps, never by their dates, which a wrong clock may have set.

  def safety_net_user
    @safety_net_user ||= Etc.getpwnam(@s[:username].to_s)
  rescue ArgumentError
    nil
  end

  # Nil when the Safety Net folder can take this run's archive, else why not.
  def prepare_safety_net
    folder = @s[:safetyNetFolder].to_s
    return "no Safety Net folder is set in the options" if folder.empty?
    user = safety_net_user
    return "#{@s[:username]}, whose backups these are, is not a user of this computer" unless user
    begin
      stat = File.lstat(folder)
    rescue Errno::ENOENT
      problem = make_safety_net(folder, user)
      return problem if problem
      stat = File.lstat(folder)
    end
    return "the Safety Net folder #{folder} is a link to another place; it must be a folder of its own" if stat.symlink?
    return "the Safety Net folder #{folder} is not a folder" unless stat.directory?
    unless stat.uid == user.uid
      owner = (Etc.getpwuid(stat.uid).name rescue "user #{stat.uid}")
      return "the Safety Net folder #{folder} belongs to #{owner}, not to #{user.name}, whose backups these are"
    end
    nil
  rescue SystemCallError => e
    "the Safety Net folder #{folder} cannot be used (#{reason(e)})"
  end

  # Makes the missing Safety Net folder as the user it belongs to, never as
  # root in a place the user controls. Its parent must be there already.
  def make_safety_net(folder, user)
    parent = File.dirname(folder)
    missing = "the Safety Net folder #{folder} is missing and cannot be made"
    unless File.directory?(parent)
      return "#{missing}: the folder it belongs in, #{parent}, does not exist (is its disk connected?)"
    end
    case (errno = as_user(user) { Dir.mkdir(folder, 0o700) })
    when 0
      log("Safety Net: made the folder #{folder}, which was missing")
      nil
    when Errno::EEXIST::Errno
      nil # made meanwhile; what it is gets checked next
    when Errno::EACCES::Errno, Errno::EPERM::Errno
      "#{missing}: #{user.name} may not make folders in #{parent} (is its disk connected?)"
    else
      "#{missing} (#{errno.between?(1, 254) ? OrvaneBackup.reason_of_errno(errno) : 'it could not be made as its owner'})"
    end
  end

  # Runs the block in a process of the user's own: their user, group and
  # groups. Returns 0, or the number of the error that stopped it.
  def as_user(user)
    pid = fork do
      Process.initgroups(user.name, user.gid)
      Process::GID.change_privilege(user.gid)
      Process::UID.change_privilege(user.uid)
      yield
      exit!(0)
    rescue SystemCallError => e
      exit!(e.errno.between?(1, 254) ? e.errno : 255)
    rescue Exception
      exit!(255)
    end
    Process.wait(pid)
    $?.exitstatus || 255
  end

  # The Safety Net folder when it lies inside the source, as a path
  # relative to it: it is never copied into a backup.
  def safety_net_inside(source)
    folder = @s[:safetyNetFolder].to_s
    return nil if folder.empty? || !File.directory?(folder)
    net = File.realpath(folder)
    root = File.realpath(source).chomp("/") + "/"
    net.start_with?(root) ? net.delete_prefix(root) : nil
  end

  # The archive record: NUL-separated "FOLDER", "ARCHIVE" pairs, oldest
  # run first, root's. Runs of one frequency (a manual one among them) may
  # overlap, so the record is changed under a lock on its folder.
  def with_archive_record
    folder = File.open(File.dirname(@s[:archiveRecord]), File::RDONLY | File::NOFOLLOW)
    folder.flock(File::LOCK_EX)
    record = begin
      File.binread(@s[:archiveRecord]).split("\0").each_slice(2).select { |pair| pair.size == 2 }
    rescue Errno::ENOENT
      []
    end
    changed = yield record
    OrvaneBackup.replace(@s[:archiveRecord], changed.map { |pair| pair.join("\0") + "\0" }.join.b, 0o600) if changed
  ensure
    folder&.close
  end

  # This run's archives go to the end of the record: before the copy (so a
  # killed run's archive keeps its place) and after, under the names psync
  # used.
  def remember_archives(names)
    folder = OrvaneBackup.bytes(@s[:safetyNetFolder])
    with_archive_record do |record|
      fresh = names.reject { |name| record.include?([folder, name]) }
      fresh.empty? ? nil : record + fresh.map { |name| [folder, name] }
    end
  rescue StandardError => e
    caution("Safety Net: the order of the archives could not be recorded in #{@s[:archiveRecord]} (#{reason(e)})")
  end

  # At most maxArchives archives of this frequency stay: the oldest by the
  # order of runs go, never one this run made. Archives the record does not
  # know (made before it was kept) count as the oldest. The other
  # frequencies' archives and anything else in the folder are left alone.
  def prune_archives
    folder = OrvaneBackup.bytes(@s[:safetyNetFolder])
    pattern = /\A\d{4}-\d\d-\d\d \d\d\.\d\d\.\d\d #{@frequency}\z/
    present = Dir.children(folder).grep(pattern)
    ours = ([archive_name] + @archives).uniq & present
    with_archive_record do |record|
      recorded = record.select { |f, _| f == folder }.map(&:last) & present
      earlier = (present - recorded - ours).sort + (recorded - ours)
      check_clock(earlier, ours)
      excess = earlier.size + ours.size - [@s[:maxArchives].to_i, 1].max
      removed = excess.positive? ? remove_archives(folder, earlier.first(excess)) : []
      # This folder's archives as they stand, oldest run first. (A name an
      # overlapping run has recorded but not yet made goes too; that run
      # records it again when it ends.)
      record.reject { |f, _| f == folder } + (earlier + ours - removed).map { |name| [folder, name] }
    end
  rescue StandardError => e
    error("Safety Net: old archives in #{@s[:safetyNetFolder]} could not be removed (#{reason(e)})")
  end

  # A clock set wrong shows as an archive of this run dated before one an
  # earlier run made.
  def check_clock(earlier, ours)
    newest = earlier.max
    return unless newest && !ours.empty? && ours.min < newest
    caution("Safety Net: this run's archive #{ours.min} is dated before #{newest}, which an earlier run made: " \
            "the computer's clock may be wrong (or was wrong then). Archives are kept in the order the runs happened, " \
            "whatever their dates say")
  end

  # Has psync remove the archives; returns those it removed.
  def remove_archives(folder, names)
    removed = []
    why = nil
    command = [psync, "--prune-archives", "--safety-net=#{folder}", "--safety-net-owner=#{@s[:username]}", *names]
    IO.popen(command, "rb", err: %i[child out], in: File::NULL) do |io|
      io.each_line do |line|
        line = line.chomp
        if (m = line.match(/\Apsync: removed (.+)\z/))
          removed << m[1]
          log("Safety Net: removed the old archive #{m[1]}")
        else
          log("  #{line}")
          why = line.delete_prefix("psync: ") if line.start_with?("psync: ")
        end
      end
    end
    unless $?.success?
      error("Safety Net: old archives in #{folder} could not be removed: #{why || 'the copy tool gave no reason'}")
    end
    removed
  end

  # --- The remote volume ----------------------------------------------
  #
  # Only root mounts at /Volumes/<volume>, a folder of root's in root's
  # /Volumes. A run whose items use the remote volume has automount mount it
  # (auto-connect on) or prove that what is mounted there is the configured
  # server's volume for this script's user (auto-connect off); a folder on
  # a volume it could not prove is never written (disk_of refuses it).

  # disk_of's refusal: back_up ends the pair with its message.
  class RemoteVolumeRefused < SystemCallError
    Errno = ::Errno::EACCES::Errno

    def initialize(text)
      @text = text
      super(text)
    end

    def to_s = @text
  end

  def remote_point = File.join("/Volumes", @s[:remoteVolumeName].to_s)

  def mount_remote_volume
    server = @s[:remoteServerName].to_s
    volume = @s[:remoteVolumeName].to_s
    # Without a server, Remote only means a volume that keeps no owners.
    return if server.empty? || volume.empty?
    what = @s[:autoConnect] ? "auto-connect: could not mount the volume #{volume} from #{server}" :
                              "the remote volume #{volume} of #{server} cannot be used"
    @remote_refused = "automount did not run"
    unless File.executable?(AUTOMOUNT)
      @remote_refused = "this installation has no automount tool"
      return error("#{what}: #{@remote_refused}")
    end
    # Its own arguments, no shell: the address goes as the user typed it.
    command = [AUTOMOUNT, "--user", @s[:username], *(@s[:autoConnect] ? [] : ["--verify"]), server, @s[:remoteAccountName], volume]
    output, problem, status = Open3.capture3(*command, stdin_data: "", binmode: true)
    output.each_line { |l| log("  automount: #{l.chomp}") }
    if status.success?
      @mounted_volume = volume if @s[:autoConnect]
      @remote_refused = nil
      @remote_proven = true
    else
      @remote_refused = problem.each_line.map(&:strip).reject(&:empty?).last.to_s.delete_prefix("automount: ")
      @remote_refused = "automount ended with status #{(status.exitstatus || status.termsig).inspect}" if @remote_refused.empty?
      error("#{what}: #{@remote_refused}")
    end
  rescue SystemCallError => e
    @remote_refused = OrvaneBackup.bytes(e.message)
    error("#{what}: #{@remote_refused}")
  end

  def unmount_remote_volume
    tidy_remote_volume
    return unless @mounted_volume
    output, status = Open3.capture2e(AUTOMOUNT, "--unmount", @mounted_volume, stdin_data: "", binmode: true)
    output.each_line { |l| log("  automount: #{l.chomp}") }
    log("auto-connect: the volume #{@mounted_volume} could not be unmounted") unless status.success?
  rescue StandardError => e
    log("auto-connect: the volume #{@mounted_volume} could not be unmounted (#{OrvaneBackup.bytes(e.message)})")
  end

  # rclone 1.60's SMB client makes a folder "．" (U+FF0E, its name for ".")
  # at the share's top whenever it writes a file there: the parent of such a
  # file is ".", and it makes that parent (rclone 1.61 no longer does). It
  # goes again after the run if it is empty and no source backed up onto the
  # share's top has an entry of that name.
  STRAY = "\xEF\xBC\x8E".b

  def tidy_remote_volume
    return unless @remote_proven
    mount = OrvaneBackup.mounts.reverse.find { |m| m[:point] == remote_point }
    return unless mount && mount[:type] == "fuse.rclone"
    onto_top = @s[:sourceFolders].each_index.select { |i| (File.realpath(@s[:destFolders][i]) rescue nil) == remote_point }
    return if onto_top.any? { |i| File.exist?(File.join(@s[:sourceFolders][i], STRAY)) }
    stray = File.join(remote_point, STRAY)
    Dir.rmdir(stray) if File.lstat(stray).directory? && Dir.empty?(stray)
  rescue SystemCallError
    nil
  end

  # --- The user's desktop ------------------------------------------------

  def kind_argument = manual? ? ["manual"] : []

  # The progress file holds one line, "<files done> <files total> <bytes
  # done> <bytes total> <source index> <source count>", replaced whole at
  # most once a second. The notice showing it reads a pipe from this run
  # too: when the run ends, however it ends, the pipe does and so does the
  # notice.
  def report_progress(line, force: false)
    return unless @s[:showProgress]
    now = Process.clock_gettime(Process::CLOCK_MONOTONIC)
    return if !force && @progress_written && now - @progress_written < 1.0
    @progress_written = now
    OrvaneBackup.replace(@s[:progressFile], "#{line}\n")
    @progress_notice ||= notice_in_background("--progress", @s[:progressFile], @frequency, *kind_argument, keep_open: true) || :none
  rescue SystemCallError => e
    log("the progress file #{@s[:progressFile]} could not be written (#{reason(e)})")
  end

  def close_progress
    return unless @s[:showProgress]
    OrvaneBackup.remove_own(@s[:progressFile], nil)
    @progress_pipe&.close
  rescue SystemCallError
    nil
  end

  # Waits until the user has left the computer alone for a while.
  def wait_until_away
    waited = 0
    loop do
      idle = user_idle_seconds
      break if idle.nil? || idle >= AWAY_SECONDS
      if waited >= MAX_WAIT_SECONDS
        log("the user was never away for long; backing up anyway")
        break
      end
      sleep 60
      waited += 60
    end
  end

  def user_idle_seconds
    output = notice_output("--idle")
    output&.strip&.match?(/\A\d+\z/) ? output.to_i : nil
  end

  def user_agrees?
    status = notice("--prompt", @frequency, *kind_argument)
    status.nil? || status.zero?
  end

  # The user's desktop: the environment of one of their processes that has
  # a display. Nothing when they have none (then no notice is shown).
  def user_session
    return @session if defined?(@session)
    @session = nil
    user = Etc.getpwnam(@s[:username]) rescue nil
    return nil if user.nil? || user.uid.zero?
    # A process of the desktop that knows its session bus; one on a display
    # without it (a stray program) only when there is no other.
    found = nil
    Dir.glob("/proc/[0-9]*").each do |process|
      next unless File.stat(process).uid == user.uid rescue next
      environment = File.binread("#{process}/environ").split("\0") rescue next
      wanted = environment.select { |v| v.match?(/\A(DISPLAY|WAYLAND_DISPLAY|XAUTHORITY|DBUS_SESSION_BUS_ADDRESS|XDG_RUNTIME_DIR)=/) }
      next unless wanted.any? { |v| v.start_with?("DISPLAY=", "WAYLAND_DISPLAY=") }
      found ||= wanted
      next unless wanted.any? { |v| v.start_with?("DBUS_SESSION_BUS_ADDRESS=") }
      found = wanted
      break
    end
    @session = found && { user: user, environment: found + ["HOME=#{user.dir}", "USER=#{user.name}", "LOGNAME=#{user.name}", "PATH=/usr/bin:/bin"] }
  end

  def notice_command(*arguments)
    session = user_session
    return nil unless session && File.executable?(notice_tool)
    ["/usr/sbin/runuser", "-u", session[:user].name, "--", "/usr/bin/env", "-i", *session[:environment], notice_tool, *arguments]
  end

  def notice(*arguments)
    command = notice_command(*arguments)
    return nil unless command
    system(*command, in: File::NULL, out: File::NULL, err: File::NULL)
    $?.exitstatus
  end

  def notice_output(*arguments)
    command = notice_command(*arguments)
    return nil unless command
    output, = Open3.capture2(*command, stdin_data: "", err: File::NULL, binmode: true)
    output
  end

  # A notice that lives on its own. Its standard input is a pipe from this
  # run: INPUT is written to it, and it ends with the run, or at once unless
  # KEEP_OPEN.
  def notice_in_background(*arguments, input: "", keep_open: false)
    command = notice_command(*arguments)
    return nil unless command
    reader, writer = IO.pipe
    pid = Process.spawn(*command, in: reader, out: File::NULL, err: File::NULL)
    reader.close
    writer.write(input) unless input.empty?
    keep_open ? @progress_pipe = writer : writer.close
    Process.detach(pid)
  rescue SystemCallError => e
    log("the notice could not be shown (#{reason(e)})")
    nil
  end
end

if __FILE__ == $PROGRAM_NAME
  File.umask(0o022)
  settings = {
    frequency: frequency, backupCommand: backupCommand, sourceFolders: sourceFolders, destFolders: destFolders,
    exclusions: exclusions, removedExclusions: removedExclusions, logfile: logfile, lastBackup: lastBackup,
    lastRun: lastRun, disksFile: disksFile, archiveRecord: archiveRecord, runFlag: runFlag, errorFile: errorFile,
    progressFile: progressFile, resourcesFolder: resourcesFolder, toastApplicationName: toastApplicationName,
    username: username, remoteBackup: remoteBackup, showProgress: showProgress, repairPermissions: repairPermissions,
    promptBeforeBackup: promptBeforeBackup, shouldWaitUntilAway: shouldWaitUntilAway, autoConnect: autoConnect,
    remoteServerName: remoteServerName, remoteAccountName: remoteAccountName, remoteVolumeName: remoteVolumeName,
    shouldArchive: shouldArchive, maxArchives: maxArchives, safetyNetFolder: safetyNetFolder,
    archiveContents: archiveContents, runKind: runKind
  }
  exit OrvaneBackup.new(settings).run
end
