#!/usr/bin/ruby --disable-gems
# encoding: ASCII-8BIT
#
# An Orvane backup. The Orvane pane makes this script from its template and
# installs it; cron, anacron or manual_backup run it as root. Paths are kept
# as the bytes that name them on disk.

# Libraries load when they are needed: a run with nothing to copy should
# cost little more than the copy tool itself.
autoload :FileUtils, "fileutils"
autoload :Open3, "open3"
autoload :Etc, "etc"

frequency = "Daily"
#ov_frequency
backupCommand = "/usr/local/bin/psync"
#ov_backupCommand
sourceFolders = []
#ov_sourceFolders
destFolders = []
#ov_destFolders
logfile = "/var/log/orvane_daily.log"
#ov_logfile
lastBackup = "/Library/Application Support/Orvane/.daily/.lastbackup"
#ov_lastBackup
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

class OrvaneBackup
  RESOURCES = "/Library/PreferencePanes/Orvane.prefPane/Contents/Resources"
  NOTICE = File.join(RESOURCES, "orvane-notice")
  AUTOMOUNT = File.join(RESOURCES, "automount")
  # Below this much free space a destination counts as full.
  MIN_FREE_BYTES = 1024 * 1024
  # Waiting for the user to be away ends after this long.
  AWAY_SECONDS = 10 * 60
  MAX_WAIT_SECONDS = 6 * 60 * 60
  ARCHIVE_NAME = /\A\d{4}-\d\d-\d\d \d\d\.\d\d\.\d\d (Daily|Weekly|Monthly)\z/

  attr_reader :errors

  def initialize(settings)
    @s = settings
    @frequency = settings[:frequency]
    @errors = []
    @archive = nil
    @started = Time.now
  end

  def run_flag = "/tmp/ov_#{@frequency}.run"
  def error_file = "/var/log/.orvane_#{@frequency.downcase}.err"
  def progress_file = "/tmp/ov_#{@frequency}.progress"

  # Writes a file as root without following a link planted at its path:
  # whatever is there goes, the file is made anew.
  def self.write_fresh(path, data)
    File.unlink(path) if File.symlink?(path) || File.exist?(path)
    File.open(path, File::WRONLY | File::CREAT | File::EXCL | File::NOFOLLOW, 0o644) { |f| f.write(data) }
  end

  def log(message)
    line = "#{Time.now.strftime('%Y-%m-%d %H:%M:%S')} #{@frequency}: #{message}\n"
    File.open(@s[:logfile], "ab", 0o644) { |f| f.write(line) }
  rescue SystemCallError => e
    $stderr.write("orvane: cannot write the log #{@s[:logfile]}: #{e.message}\n#{line}")
  end

  def error(message)
    @errors << message
    log("ERROR: #{message}")
  end

  # The whole run. Returns the exit status: 0 done, 1 done with errors,
  # 3 not run (the user declined it).
  def run
    wait_until_away if @s[:shouldWaitUntilAway]
    if @s[:promptBeforeBackup] && !user_agrees?
      log("skipped: the user chose not to back up now")
      return 3
    end
    OrvaneBackup.write_fresh(run_flag, "#{Process.pid}\n")
    begin
      File.unlink(error_file) if File.exist?(error_file) || File.symlink?(error_file)
      log("backup started (#{@s[:sourceFolders].size} folder#{@s[:sourceFolders].size == 1 ? '' : 's'})")
      mount_remote_volume if @s[:autoConnect]
      if @s[:repairPermissions]
        log("repair permissions: every copy keeps each file's owner, group and permissions, and " \
            "Linux has no store of system permissions to repair; nothing more to do")
      end
      @s[:sourceFolders].each_with_index do |source, i|
        report_progress(i, source)
        back_up(source, @s[:destFolders][i])
      end
      prune_archives if @s[:shouldArchive]
      finish
    ensure
      [progress_file, run_flag].each { |f| File.unlink(f) if File.exist?(f) || File.symlink?(f) }
    end
    @errors.empty? ? 0 : 1
  end

  def finish
    unless @errors.empty?
      stamp = Time.now.strftime("%Y-%m-%d %H:%M:%S")
      OrvaneBackup.write_fresh(error_file, @errors.map { |e| "#{stamp} #{e}\n" }.join)
    end
    OrvaneBackup.write_fresh(@s[:lastBackup], @started.strftime("%m/%d/%y"))
    log(@errors.empty? ? "backup complete" : "backup finished with #{@errors.size} error#{@errors.size == 1 ? '' : 's'}")
    # The notice stays up as long as the user likes; the run does not wait.
    notice_in_background("--finished", @frequency, @errors.empty? ? "complete" : "errors")
  end

  # One source onto one destination.
  def back_up(source, destination)
    if destination == "Toast"
      error("#{source}: the disc was not burned: #{@s[:toastApplicationName]} does not exist on this system")
      return
    end
    return error("#{source}: the source folder does not exist") unless File.directory?(source)
    unless File.directory?(destination)
      return error("#{destination}: the destination is missing (is its disk connected?); #{source} was not backed up")
    end
    free = free_bytes(destination)
    if free && free < MIN_FREE_BYTES
      return error("#{destination}: the destination is full (#{free} bytes free); #{source} was not backed up")
    end
    if nested?(source, destination)
      return error("#{source} and #{destination} lie inside each other; nothing was copied")
    end

    archive_replaced_files(source, destination) if @s[:shouldArchive]
    command = @s[:backupCommand].split(" ") + [source, destination]
    output = IO.popen(command, err: [:child, :out], &:read)
    status = $?
    output.each_line { |l| log("  #{l.chomp}") }
    case status.exitstatus
    when 0
      log("#{source} -> #{destination}: done")
    when 1
      error("#{source} -> #{destination}: done, but some files vanished or could not be read")
    else
      full = output.include?("No space left on device")
      error("#{source} -> #{destination}: " + (full ? "the destination became full" : "the copy failed") +
            " (psync status #{status.exitstatus.inspect}); files not yet copied keep their earlier version")
    end
  rescue SystemCallError => e
    error("#{source} -> #{destination}: #{e.message}")
  end

  def nested?(a, b)
    ra = File.realpath(a) + "/"
    rb = File.realpath(b) + "/"
    ra.start_with?(rb) || rb.start_with?(ra)
  end

  def free_bytes(folder)
    output = IO.popen(["/usr/bin/stat", "-f", "-c", "%a %S", folder], err: File::NULL, &:read)
    return nil unless $?.success?
    available, block = output.split.map(&:to_i)
    available * block
  end

  # The Safety Net: every destination file this run will replace or delete
  # is first linked into a dated archive (copied where the archive is on
  # another disk). The destination keeps it until psync replaces it.
  def archive_replaced_files(source, destination)
    flags = @s[:backupCommand].split(" ")[1..].to_a.join.delete("-")
    dry = [@s[:backupCommand].split(" ").first, "-nv#{flags}", source, destination]
    output, status = Open3.capture2e(*dry)
    unless [0, 1].include?(status.exitstatus)
      return error("#{destination}: could not work out what the Safety Net must keep; nothing archived")
    end
    contents = @s[:archiveContents].to_s.empty? ? "Everything" : @s[:archiveContents]
    affected = OrvaneBackup.affected_files(output, changed: contents != "Deleted", deleted: contents != "Changed")
    affected.each { |relative| archive(destination, relative) }
    log("Safety Net: kept #{affected.size} file#{affected.size == 1 ? '' : 's'} of #{destination}") unless affected.empty?
  end

  # From psync -nv (rsync's itemized changes): the existing files that would
  # be replaced, and the files that would be deleted.
  def self.affected_files(itemized, changed: true, deleted: true)
    itemized.each_line.filter_map do |line|
      line = line.chomp
      if (m = line.match(/\A\*deleting +(.*)\z/))
        path = m[1]
        deleted && !path.end_with?("/") ? unescape(path) : nil
      elsif (m = line.match(/\A[>c]([fL])(\S{9,10}) (.*)\z/))
        new_file = m[2].start_with?("+")
        changed && !new_file ? unescape(m[3].sub(/ -> .*\z/, "")) : nil
      end
    end
  end

  # rsync writes unusual bytes of a name as \#ooo.
  def self.unescape(name)
    name.gsub(/\\#(\d{3})/) { m = Regexp.last_match(1); m.to_i(8).chr }
  end

  def archive(destination, relative)
    original = File.join(destination, relative)
    return unless File.symlink?(original) || File.file?(original)
    @archive ||= File.join(@s[:safetyNetFolder], "#{@started.strftime('%Y-%m-%d %H.%M.%S')} #{@frequency}")
    kept = File.join(@archive, destination.sub(%r{\A/+}, ""), relative)
    FileUtils.mkdir_p(File.dirname(kept))
    begin
      File.link(original, kept)
    rescue Errno::EXDEV, Errno::EPERM
      FileUtils.copy_entry(original, kept, true)
    end
  rescue SystemCallError => e
    error("Safety Net: could not keep #{original}: #{e.message}")
  end

  def prune_archives
    folder = @s[:safetyNetFolder]
    return unless File.directory?(folder)
    archives = Dir.children(folder).select { |n| n.match?(ARCHIVE_NAME) }.sort
    excess = archives.size - [@s[:maxArchives].to_i, 0].max
    archives.first([excess, 0].max).each do |name|
      FileUtils.remove_entry_secure(File.join(folder, name))
      log("Safety Net: removed the old archive #{name}")
    end
  rescue SystemCallError => e
    error("Safety Net: could not remove old archives: #{e.message}")
  end

  def mount_remote_volume
    server = @s[:remoteServerName]
    unless File.executable?(AUTOMOUNT)
      return error("auto-connect: #{server} was not mounted: this installation has no automount tool")
    end
    output, status = Open3.capture2e(AUTOMOUNT, server, @s[:remoteAccountName], @s[:remoteVolumeName])
    output.each_line { |l| log("  #{l.chomp}") }
    error("auto-connect: could not mount #{@s[:remoteVolumeName]} from #{server}") unless status.success?
  end

  def report_progress(index, source)
    return unless @s[:showProgress]
    OrvaneBackup.write_fresh(progress_file, "#{index} #{@s[:sourceFolders].size} #{File.basename(source)}\n")
    @progress ||= notice_in_background("--progress", progress_file, @frequency)
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
    status = notice("--prompt", @frequency)
    status.nil? || status.zero?
  end

  # The user's desktop: the environment of one of their processes that has
  # a display. Nothing when they have none (then no notice is shown).
  def user_session
    return @session if defined?(@session)
    @session = nil
    user = Etc.getpwnam(@s[:username]) rescue nil
    return nil if user.nil? || user.uid.zero?
    Dir.glob("/proc/[0-9]*").each do |process|
      next unless File.stat(process).uid == user.uid rescue next
      environment = File.binread("#{process}/environ").split("\0") rescue next
      wanted = environment.select { |v| v.match?(/\A(DISPLAY|WAYLAND_DISPLAY|XAUTHORITY|DBUS_SESSION_BUS_ADDRESS|XDG_RUNTIME_DIR)=/) }
      next unless wanted.any? { |v| v.start_with?("DISPLAY=", "WAYLAND_DISPLAY=") }
      @session = { user: user, environment: wanted + ["HOME=#{user.dir}", "USER=#{user.name}", "LOGNAME=#{user.name}", "PATH=/usr/bin:/bin"] }
      break
    end
    @session
  end

  def notice_command(*arguments)
    session = user_session
    return nil unless session && File.executable?(NOTICE)
    ["/usr/sbin/runuser", "-u", session[:user].name, "--", "/usr/bin/env", "-i", *session[:environment], NOTICE, *arguments]
  end

  def notice(*arguments)
    command = notice_command(*arguments)
    return nil unless command
    system(*command, out: File::NULL, err: File::NULL)
    $?.exitstatus
  end

  def notice_output(*arguments)
    command = notice_command(*arguments)
    return nil unless command
    output, = Open3.capture2(*command, err: File::NULL)
    output
  end

  def notice_in_background(*arguments)
    command = notice_command(*arguments)
    command && Process.detach(Process.spawn(*command, out: File::NULL, err: File::NULL))
  end
end

if __FILE__ == $PROGRAM_NAME
  File.umask(0o022)
  settings = {
    frequency: frequency, backupCommand: backupCommand, sourceFolders: sourceFolders, destFolders: destFolders,
    logfile: logfile, lastBackup: lastBackup, toastApplicationName: toastApplicationName, username: username,
    remoteBackup: remoteBackup, showProgress: showProgress, repairPermissions: repairPermissions,
    promptBeforeBackup: promptBeforeBackup, shouldWaitUntilAway: shouldWaitUntilAway, autoConnect: autoConnect,
    remoteServerName: remoteServerName, remoteAccountName: remoteAccountName, remoteVolumeName: remoteVolumeName,
    shouldArchive: shouldArchive, maxArchives: maxArchives, safetyNetFolder: safetyNetFolder, archiveContents: archiveContents
  }
  exit OrvaneBackup.new(settings).run
end
